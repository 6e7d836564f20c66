// SPDX-License-Identifier: GPL-2.0
//
// The configuration keys as people write them: which entries have which, and what
// values they take. Names and defaults are those that the driver reads by.
#ifndef TOOLS_CFG_KEYS_H
#define TOOLS_CFG_KEYS_H

#include <array>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "intr/types.h"
#include "table/config_keys.h"
#include "tools/common/number.h"

namespace cfg {

using tools::parse_number;

inline constexpr u32 no_chip = 0xffffffff;

enum class node_kind { global, combiner, slot };

// How a value is written besides as a number.
enum class words { none, flag, trigger, origin };

// A key as the driver reads it, and what else there is to say about its value.
struct key_rule : config::key {
	u32 min;
	u32 max;
	cfg::words words = words::none;
	bool slot_only = false;

	bool is_required() const { return !fallback; }
	// 0, which means nothing, for a required key.
	u32 default_value() const { return fallback_value; }
};

inline constexpr u32 any = 0xffffffff;

inline constexpr auto common_keys = std::to_array<key_rule>({
	{config::common::cfg_type_bitmap, 0, 7},
	{config::common::acpi_bitmap, 0, any},
	{config::common::gpio_bitmap, 0, any},
	{config::common::netlink_id, 0, any},
	{config::common::combiner_bitmap, 0, any},
});

inline constexpr auto combiner_keys = std::to_array<key_rule>({
	{config::combiner::chip_id, 0, any},
	{config::combiner::allow_max, 0, any},
	{config::combiner::suppress_ms, 0, any},
	{config::combiner::policy, 0, any},
	{config::combiner::direct, 0, 1, words::flag},
	{config::combiner::gpio, 0, any},
	{config::combiner::irq_type, 1, 8, words::trigger},
	{config::combiner::int_type, 0, 2, words::origin},
	{config::combiner::async, 0, 1, words::flag},
});

inline constexpr auto cpu_keys = std::to_array<key_rule>({
	{config::cpu::reg_addr, 0, any},
	{config::cpu::shift, 0, 31},
	{config::cpu::mask, 1, any},
	{config::cpu::value, 0, any},
});

inline constexpr auto leaf_keys = std::to_array<key_rule>({
	{config::leaf::index_id, 0, any},
	{config::leaf::type, 0, any},
	{config::leaf::hwirq, 0, any},
	{config::leaf::irq_type, 1, 8, words::trigger},
	{config::leaf::allow_max, 0, any},
	{config::leaf::suppress_ms, 0, any},
	{config::leaf::policy, 0, any},
	{config::leaf::level_num, 0, config::MAX_LEVELS},
	{config::leaf::sync, 0, 1, words::flag},
	{config::leaf::combiner_id, 0, any, words::none, true},
});

// The part of the name behind "l0_" to "l4_".
inline constexpr auto level_keys = std::to_array<key_rule>({
	{config::level::chip_id, 0, any},
	{config::level::en, 0, any},
	{config::level::status, 0, any},
	{config::level::shift, 0, 31},
	{config::level::mask, 1, any},
	{config::level::wc, 0, 1, words::flag},
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
	{node_kind::combiner, "cpu_default_cfg", config::MAX_CPU_ENTRIES - 1, cpu_keys},
	{node_kind::combiner, "cpu_cfg", config::MAX_CPU_ENTRIES - 1, cpu_keys},
	{node_kind::combiner, "hwirq_cfg", config::MAX_LEAF_ENTRIES - 1, leaf_keys, true, true},
	{node_kind::slot, "hwirq_cfg", config::MAX_LEAF_ENTRIES - 1, leaf_keys, true, true},
});

// Null when the table has no such key.
const key_rule *find_key(std::span<const key_rule> rules, std::string_view name);

// "l3_en": level 3, rule of "en". Null when it is no level key; the level may
// be one that is never read.
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
