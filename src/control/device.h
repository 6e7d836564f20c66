// SPDX-License-Identifier: GPL-2.0
//
// The control device "intr". What its commands mean to a process stands in
// uapi/intr.h.
#ifndef INTR_CONTROL_DEVICE_H
#define INTR_CONTROL_DEVICE_H

// Process context. 0, or the kernel's code.
[[nodiscard]] int drv_intr_register_device();
void drv_intr_deregister_device();

#endif
