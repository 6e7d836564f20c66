// SPDX-License-Identifier: GPL-2.0
//
// The configuration keys: their names, what stands for one that is absent, what
// values mean, and how many entries and levels are read. The driver reads by these
// rows; the tools check and show by them what it will read.
#ifndef TABLE_CONFIG_KEYS_H
#define TABLE_CONFIG_KEYS_H

#include "intr/types.h"

// Linux trigger types, bits of `irq_type`.
inline constexpr u32 DRV_INTR_TYPE_EDGE_RISING = 1;
inline constexpr u32 DRV_INTR_TYPE_EDGE_FALLING = 2;
inline constexpr u32 DRV_INTR_TYPE_LEVEL_HIGH = 4;
inline constexpr u32 DRV_INTR_TYPE_LEVEL_LOW = 8;

// `int_type`: where a combiner's parent line comes from.
enum drv_intr_int_type : u32 {
	DRV_INTR_EXTERNAL = 0,
	DRV_INTR_GPIO = 1,
	DRV_INTR_COMBINER = 2,
};

// Bits of `cfg_type_bitmap`: the sources of combiners in use.
inline constexpr u32 DRV_INTR_CFG_ACPI = 1u << 0;
inline constexpr u32 DRV_INTR_CFG_DTS = 1u << 1;
inline constexpr u32 DRV_INTR_CFG_GPIO = 1u << 2;

namespace config {

inline constexpr u32 MAX_CPU_ENTRIES = 16; // cpu_default_cfg0 to 15, cpu_cfg0 to 15
inline constexpr u32 MAX_LEAF_ENTRIES = 128; // hwirq_cfg0 to 127
inline constexpr u32 MAX_LEVELS = 5;

inline constexpr u32 NO_REGISTER = 0xffffffff; // `en` of a level that is always enabled

// The number in a text, decimal or 0x hexadecimal; 0 without one.
[[nodiscard]] consteval u32 number_in(const char *text)
{
	const bool hex = text && text[0] == '0' && text[1] == 'x';
	u32 number = 0;

	for (const char *at = hex ? text + 2 : text; at && *at; at++)
		number = number * (hex ? 16 : 10) +
			 static_cast<u32>(*at >= 'a' ? *at - 'a' + 10 : *at - '0');
	return number;
}

struct key {
	consteval key(const char *the_name, const char *the_fallback)
		: name(the_name), fallback(the_fallback), fallback_value(number_in(the_fallback))
	{
	}

	const char *name;
	const char *fallback; // when absent, decimal or 0x hexadecimal; null: it must be there
	u32 fallback_value; // the same as a number; 0: none
};

// The word that people read and write for a value.
struct value_word {
	u32 value;
	const char *word;
};

inline constexpr value_word int_type_words[] = {
	{DRV_INTR_EXTERNAL, "external"},
	{DRV_INTR_GPIO, "gpio"},
	{DRV_INTR_COMBINER, "combiner"},
};

inline constexpr value_word irq_type_words[] = {
	{DRV_INTR_TYPE_EDGE_RISING, "rising"},
	{DRV_INTR_TYPE_EDGE_FALLING, "falling"},
	{DRV_INTR_TYPE_LEVEL_HIGH, "high"},
	{DRV_INTR_TYPE_LEVEL_LOW, "low"},
};

// Node global_cfg, entry common.
namespace common {
inline constexpr key cfg_type_bitmap = {"cfg_type_bitmap", "2"};
inline constexpr key acpi_bitmap = {"acpi_bitmap", "0"};
inline constexpr key gpio_bitmap = {"gpio_bitmap", "0"};
inline constexpr key netlink_id = {"netlink_id", "30"};
inline constexpr key combiner_bitmap = {"combiner_bitmap", "0"};
} // namespace common

// Node irq_combiner@N, entry global_cfg.
namespace combiner {
inline constexpr key chip_id = {"chip_id", "0xffffffff"};
inline constexpr key allow_max = {"allow_max", "2500"};
inline constexpr key suppress_ms = {"suppress_ms", "1000"};
inline constexpr key policy = {"policy", "1"};
inline constexpr key direct = {"direct", "0"};
inline constexpr key gpio = {"gpio", "0"};
inline constexpr key irq_type = {"irq_type", "8"};
inline constexpr key int_type = {"int_type", "0"};
inline constexpr key async = {"async", "0"};
} // namespace combiner

// Entries cpu_default_cfgN and cpu_cfgN.
namespace cpu {
inline constexpr key reg_addr = {"reg_addr", nullptr};
inline constexpr key shift = {"shift", nullptr};
inline constexpr key mask = {"mask", nullptr};
inline constexpr key value = {"value", nullptr};
} // namespace cpu

// Entries hwirq_cfgN of a combiner or a slot.
namespace leaf {
inline constexpr key index_id = {"index_id", "0xffffffff"};
inline constexpr key type = {"type", nullptr};
inline constexpr key hwirq = {"hwirq", nullptr};
inline constexpr key irq_type = {"irq_type", "8"};
inline constexpr key allow_max = {"allow_max", "250"};
inline constexpr key suppress_ms = {"suppress_ms", "1000"};
inline constexpr key policy = {"policy", "1"};
inline constexpr key level_num = {"level_num", "0"};
inline constexpr key sync = {"sync", "0"};
// Of a slot only. A leaf without it belongs to no combiner.
inline constexpr key combiner_id = {"combiner_id", "0xffffffff"};
} // namespace leaf

// In a leaf's entry, each behind "l0_" to "l4_".
namespace level {
inline constexpr key chip_id = combiner::chip_id; // the combiner's own, where it has one
inline constexpr key en = {"en", "0xffffffff"}; // NO_REGISTER
inline constexpr key status = {"status", nullptr};
inline constexpr key shift = {"shift", nullptr};
inline constexpr key mask = {"mask", "1"};
inline constexpr key wc = {"wc", "0"};
} // namespace level

} // namespace config

#endif
