// SPDX-License-Identifier: GPL-2.0
#include "tools/common/number.h"

#include <charconv>

namespace tools {

std::optional<uint32_t> parse_number(std::string_view text)
{
	const bool is_hex = text.starts_with("0x") || text.starts_with("0X");
	uint32_t value = 0;

	if (is_hex)
		text.remove_prefix(2);
	else if (text.size() > 1 && text[0] == '0')
		return std::nullopt;
	const auto [end, error] =
		std::from_chars(text.data(), text.data() + text.size(), value, is_hex ? 16 : 10);
	if (error != std::errc() || end != text.data() + text.size())
		return std::nullopt;
	return value;
}

} // namespace tools
