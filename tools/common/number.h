// SPDX-License-Identifier: GPL-2.0
//
// Numbers as people write them, the same for every tool.
#ifndef TOOLS_COMMON_NUMBER_H
#define TOOLS_COMMON_NUMBER_H

#include <cstdint>
#include <optional>
#include <string_view>

namespace tools {

// All of the text: decimal without leading zeros, which would be octal elsewhere, or
// hexadecimal behind 0x or 0X.
std::optional<uint32_t> parse_number(std::string_view text);

} // namespace tools

#endif
