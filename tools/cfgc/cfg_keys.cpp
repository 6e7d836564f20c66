// SPDX-License-Identifier: GPL-2.0
//
// Names and values of the configuration keys: recognising, reading, suggesting.
#include "cfg_keys.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <utility>

namespace cfg {
namespace {

std::span<const config::value_word> words_of(words kind)
{
	switch (kind) {
	case words::trigger:
		return config::irq_type_words;
	case words::origin:
		return config::int_type_words;
	case words::none:
	case words::flag:
		break;
	}
	return {};
}

std::string_view word_of(std::span<const config::value_word> list, u32 value)
{
	for (const auto &[number, text] : list)
		if (number == value)
			return text;
	return "unknown";
}

std::string lower(std::string_view text)
{
	std::string result(text);
	std::transform(result.begin(), result.end(), result.begin(),
		       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
	return result;
}

// Number of single-character edits between two short texts.
size_t distance(const std::string &a, const std::string &b)
{
	std::vector<size_t> row(b.size() + 1);

	for (size_t j = 0; j <= b.size(); j++)
		row[j] = j;
	for (size_t i = 1; i <= a.size(); i++) {
		size_t diagonal = std::exchange(row[0], i);
		for (size_t j = 1; j <= b.size(); j++) {
			const size_t change = diagonal + (a[i - 1] != b[j - 1]);
			diagonal = row[j];
			row[j] = std::min({row[j] + 1, row[j - 1] + 1, change});
		}
	}
	return row.back();
}

} // namespace

const key_rule *find_key(std::span<const key_rule> rules, std::string_view name)
{
	const auto at = std::find_if(rules.begin(), rules.end(),
				     [&](const key_rule &rule) { return rule.name == name; });
	return at == rules.end() ? nullptr : &*at;
}

const key_rule *find_level_key(std::string_view name, u32 &level)
{
	const size_t end = name.find('_');

	if (name.empty() || name[0] != 'l' || end == name.npos)
		return nullptr;
	const numbered_name head = split_number(name.substr(0, end));
	if (head.stem != "l" || !head.number)
		return nullptr;
	level = *head.number;
	return find_key(level_keys, name.substr(end + 1));
}

numbered_name split_number(std::string_view name)
{
	const size_t digits = name.find_last_not_of("0123456789") + 1; // npos + 1 is 0
	const std::string_view tail = name.substr(digits);
	numbered_name result{name.substr(0, digits), std::nullopt};

	if (!tail.empty() && (tail.size() == 1 || tail[0] != '0'))
		result.number = parse_number(tail);
	return result;
}

std::optional<u32> parse_value(const key_rule &rule, std::string_view text)
{
	for (const auto &[number, name] : words_of(rule.words))
		if (name == text)
			return number;
	return parse_number(text);
}

bool in_range(const key_rule &rule, u32 value)
{
	if (rule.words == words::trigger)
		return word_of(config::irq_type_words, value) != "unknown";
	return value >= rule.min && value <= rule.max;
}

std::string describe_values(const key_rule &rule)
{
	switch (rule.words) {
	case words::trigger:
		return "rising (1), falling (2), high (4) or low (8)";
	case words::origin:
		return "external (0), gpio (1) or combiner (2)";
	case words::flag:
		return "0 or 1";
	case words::none:
		break;
	}
	const std::string max = rule.max == any ? "0xffffffff" : std::to_string(rule.max);
	return "a number from " + std::to_string(rule.min) + " to " + max + ", as 18 or 0x12";
}

std::string_view trigger_word(u32 irq_type)
{
	return word_of(config::irq_type_words, irq_type);
}

std::string_view origin_word(u32 int_type)
{
	return word_of(config::int_type_words, int_type);
}

std::string nearest(std::string_view name, const std::vector<std::string> &candidates)
{
	const std::string wanted = lower(name);
	// A third of the characters wrong still reads as a misspelling.
	size_t best = std::max<size_t>(1, name.size() / 3) + 1;
	std::string result;

	if (name.size() > 64)
		return result;
	for (const std::string &candidate : candidates) {
		const size_t edits = distance(wanted, candidate);
		if (edits < best) {
			best = edits;
			result = candidate;
		}
	}
	return result;
}

std::string join(const std::vector<std::string> &names)
{
	std::string text;

	for (size_t i = 0; i < names.size(); i++) {
		if (i)
			text += i + 1 == names.size() ? " and " : ", ";
		text += names[i];
	}
	return text;
}

std::string hex(u32 value)
{
	char text[16];

	std::snprintf(text, sizeof(text), "0x%x", value);
	return text;
}

} // namespace cfg
