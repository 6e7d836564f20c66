/* SPDX-License-Identifier: GPL-2.0 */
/*
 * Start and stop of the driver, called by the home when the module is loaded
 * and unloaded. Process context. Start returns 0, or a negative code with
 * everything undone except the logging registration.
 */
#ifndef INTR_CONTROL_MODULE_H
#define INTR_CONTROL_MODULE_H

#ifdef __cplusplus
extern "C" {
#endif

int drv_intr_module_init(void);
void drv_intr_module_exit(void);

#ifdef __cplusplus
}
#endif

#endif
