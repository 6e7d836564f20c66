/* SPDX-License-Identifier: GPL-2.0 */
/*
 * Fixed-width names for the C++ side. C files get the same names from their
 * own home before they include anything from this directory: <linux/types.h>
 * in the kernel, "port.h" in the sibling modules.
 */
#ifndef INTR_TYPES_H
#define INTR_TYPES_H

#ifdef __cplusplus
#include <stddef.h>

using u8 = unsigned char;
using u16 = unsigned short;
using u32 = unsigned int;
using s32 = int;
using u64 = unsigned long long;

static_assert(sizeof(u16) == 2 && sizeof(u32) == 4 && sizeof(u64) == 8);

template <typename T, u32 count> [[nodiscard]] constexpr u32 array_size(const T (&)[count])
{
	return count;
}
#endif

#endif
