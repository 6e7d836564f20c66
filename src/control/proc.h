// SPDX-License-Identifier: GPL-2.0
//
// The driver's proc directory "intr": reports to read, debug switches to write.
#ifndef INTR_CONTROL_PROC_H
#define INTR_CONTROL_PROC_H

// Process context. 0, or -EFAULT; what was made before stays until drv_intr_del_proc.
[[nodiscard]] int drv_intr_init_proc();
void drv_intr_del_proc();

#endif
