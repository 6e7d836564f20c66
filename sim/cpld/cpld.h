/* SPDX-License-Identifier: GPL-2.0 */
/*
 * Start and stop of the CPLD access module. Process context. Register access
 * is declared in intr/siblings.h, the simulation's own side in cpld_sim.h.
 */
#ifndef CPLD_CPLD_H
#define CPLD_CPLD_H

#ifdef __cplusplus
extern "C" {
#endif

/* Registers "cpld", "cpld_trace" and "cpld_state". Return: 0 or -errno, nothing left behind. */
int cpld_start(void);

/* Removes the control files and forgets everything, the line hook included. */
void cpld_stop(void);

#ifdef __cplusplus
}
#endif

#endif
