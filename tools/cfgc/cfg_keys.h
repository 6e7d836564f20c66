// SPDX-License-Identifier: GPL-2.0
//
// The configuration keys: which entries and keys exist, what they default to
// and what values they take. The defaults are those of the driver's readers.
#ifndef TOOLS_CFG_KEYS_H
#define TOOLS_CFG_KEYS_H

#include <array>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "intr/types.h"
#include "tools/common/number.h"

namespace cfg {

using tools::parse_number;

inline constexpr u32 no_register = 0xffffffff;
inline constexpr u32 no_chip = 0xffffffff;
inline constexpr u32 no_index = 0xffffffff;
inline constexpr u32 level_max = 5;

// Bits of cfg_type_bitmap.
inline constexpr u32 source_acpi = 1u << 0, source_dts = 1u << 1, source_gpio = 1u << 2;
// Values of int_type.
inline constexpr u32 origin_external = 0, origin_gpio = 1, origin_combiner = 2;

enum class node_kind { global, combiner, slot };

// How a value is written besides as a number.
enum class words { none, flag, trigger, origin };

struct key_rule {
	std::string_view name;
	bool required;
	u32 fallback; // when absent; no meaning for a required key
	u32 min;
	u32 max;
	cfg::words words = words::none;
	bool slot_only = false;
};

inline constexpr u32 any = 0xffffffff;

inline constexpr auto common_keys = std::to_array<key_rule>({
	{"cfg_type_bitmap", false, 2, 0, 7},
	{"acpi_bitmap", false, 0, 0, any},
	{"gpio_bitmap", false, 0, 0, any},
	{"netlink_id", false, 30, 0, any},
	{"combiner_bitmap", false, 0, 0, any},
});

inline constexpr auto combiner_keys = std::to_array<key_rule>({
	{"chip_id", false, no_chip, 0, any},
	{"allow_max", false, 2500, 0, any},
	{"suppress_ms", false, 1000, 0, any},
	{"policy", false, 1, 0, any},
	{"direct", false, 0, 0, 1, words::flag},
	{"gpio", false, 0, 0, any},
	{"irq_type", false, 8, 1, 8, words::trigger},
	{"int_type", false, 0, 0, 2, words::origin},
	{"async", false, 0, 0, 1, words::flag},
});

inline constexpr auto cpu_keys = std::to_array<key_rule>({
	{"reg_addr", true, 0, 0, any},
	{"shift", true, 0, 0, 31},
	{"mask", true, 0, 1, any},
	{"value", true, 0, 0, any},
});

inline constexpr auto leaf_keys = std::to_array<key_rule>({
	{"index_id", false, no_index, 0, any},
	{"type", true, 0, 0, any},
	{"hwirq", true, 0, 0, any},
	{"irq_type", false, 8, 1, 8, words::trigger},
	{"allow_max", false, 250, 0, any},
	{"suppress_ms", false, 1000, 0, any},
	{"policy", false, 1, 0, any},
	{"level_num", false, 0, 0, level_max},
	{"sync", false, 0, 0, 1, words::flag},
	{"combiner_id", false, no_index, 0, any, words::none, true},
});

// The part of the name behind "l0_" to "l4_". The real default of chip_id is
// the combiner's chip_id.
inline constexpr auto level_keys = std::to_array<key_rule>({
	{"chip_id", false, no_chip, 0, any},
	{"en", false, no_register, 0, any},
	{"status", true, 0, 0, any},
	{"shift", true, 0, 0, 31},
	{"mask", false, 1, 1, any},
	{"wc", false, 0, 0, 1, words::flag},
});

inline constexpr u32 not_numbered = 0xffffffff;

struct entry_rule {
	node_kind node;
	std::string_view name; // without the number
	u32 last; // highest number that is read, or not_numbered
	std::span<const key_rule> keys;
	bool is_leaf = false;
	bool has_label = false;
};

inline constexpr auto entry_rules = std::to_array<entry_rule>({
	{node_kind::global, "common", not_numbered, common_keys},
	{node_kind::combiner, "global_cfg", not_numbered, combiner_keys, false, true},
	{node_kind::combiner, "cpu_default_cfg", 15, cpu_keys},
	{node_kind::combiner, "cpu_cfg", 15, cpu_keys},
	{node_kind::combiner, "hwirq_cfg", 127, leaf_keys, true, true},
	{node_kind::slot, "hwirq_cfg", 127, leaf_keys, true, true},
});

// Null when the table has no such key.
const key_rule *find_key(std::span<const key_rule> rules, std::string_view name);

// "l3_en": level 3, rule of "en". Null when it is no level key; the level may
// be beyond level_max.
const key_rule *find_level_key(std::string_view name, u32 &level);

// A name that ends in a decimal number without leading zeros.
struct numbered_name {
	std::string_view stem;
	std::optional<u32> number; // none: no number, or leading zeros
};
numbered_name split_number(std::string_view name);

// Like parse_number, and the words of the rule; the range is not looked at.
std::optional<u32> parse_value(const key_rule &rule, std::string_view text);
bool in_range(const key_rule &rule, u32 value);

// "a number from 0 to 5", "rising, falling, high or low": what can be written.
std::string describe_values(const key_rule &rule);
std::string_view trigger_word(u32 irq_type);
std::string_view origin_word(u32 int_type);

// The candidate that name is most likely a misspelling of; empty when none is near.
std::string nearest(std::string_view name, const std::vector<std::string> &candidates);

// "a, b and c"
std::string join(const std::vector<std::string> &names);

std::string hex(u32 value);

} // namespace cfg

#endif
