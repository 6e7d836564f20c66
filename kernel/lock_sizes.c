// SPDX-License-Identifier: GPL-2.0
/*
 * What a lock of this kernel takes, for C++ code that cannot include the kernel's headers.
 * Compiled to assembly only, in which the build finds the lines of a header.
 */
#include <linux/kbuild.h>
#include <linux/mutex.h>
#include <linux/spinlock.h>

void lock_sizes(void);

void lock_sizes(void)
{
	DEFINE(PLAT_MUTEX_SIZE, sizeof(struct mutex));
	DEFINE(PLAT_MUTEX_ALIGN, __alignof__(struct mutex));
	DEFINE(PLAT_RAW_SPINLOCK_SIZE, sizeof(raw_spinlock_t));
	DEFINE(PLAT_RAW_SPINLOCK_ALIGN, __alignof__(raw_spinlock_t));
}
