/* SPDX-License-Identifier: GPL-2.0 */
/* What differs between the kernels that the C glue is built for, each with the change it answers.
 */
#ifndef INTR_KERNEL_COMPAT_H
#define INTR_KERNEL_COMPAT_H

#include <linux/version.h>

#if LINUX_VERSION_CODE < KERNEL_VERSION(6, 1, 0)
#error "intr needs Linux 6.1 or newer"
#endif

/* 6.11: a platform driver's remove returns nothing; until then that one had a name of its own. */
#if LINUX_VERSION_CODE < KERNEL_VERSION(6, 11, 0)
#define PLATFORM_DRIVER_REMOVE remove_new
#else
#define PLATFORM_DRIVER_REMOVE remove
#endif

#endif
