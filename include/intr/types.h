/* SPDX-License-Identifier: GPL-2.0 */
/*
 * Fixed-width names: the kernel's own in its C files, the same ones made here
 * everywhere else. C files from which symbol versions are computed include this,
 * too: it brings nothing beyond <linux/types.h>.
 */
#ifndef INTR_TYPES_H
#define INTR_TYPES_H

#if defined(__cplusplus)
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
#elif defined(__KERNEL__)
#include <linux/types.h>
#else
#include <stdbool.h>
#include <stddef.h>

typedef unsigned char u8;
typedef unsigned short u16;
typedef unsigned int u32;
typedef int s32;
typedef unsigned long long u64;
#endif

#endif
