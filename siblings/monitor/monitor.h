/* SPDX-License-Identifier: GPL-2.0 */
/*
 * Start and stop of the interrupt monitor. Process context.
 * What it offers to others is declared in intr/siblings.h.
 */
#ifndef MONITOR_MONITOR_H
#define MONITOR_MONITOR_H

#ifdef __cplusplus
extern "C" {
#endif

/* Registers the control file "monitor". Return: 0 or -errno, nothing left behind. */
int monitor_start(void);

/* Removes the control file; unwatches every line, and enables those it has disabled. */
void monitor_stop(void);

#ifdef __cplusplus
}
#endif

#endif
