/* SPDX-License-Identifier: GPL-2.0 */
/* What a lock of the model takes (struct embedded_lock), for platform/kernel_api.h. */
#ifndef HOST_PLATFORM_LOCK_SIZES_H
#define HOST_PLATFORM_LOCK_SIZES_H

#define PLAT_MUTEX_SIZE 64
#define PLAT_MUTEX_ALIGN 8
#define PLAT_RAW_SPINLOCK_SIZE 64
#define PLAT_RAW_SPINLOCK_ALIGN 8

#endif
