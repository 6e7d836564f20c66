/* SPDX-License-Identifier: GPL-2.0 */
/*
 * Start and stop of the logging module. Process context.
 * What it offers to others is declared in intr/siblings.h.
 */
#ifndef LOG_LOG_H
#define LOG_LOG_H

#ifdef __cplusplus
extern "C" {
#endif

/* Registers the control files "log" and "log_ctl". Return: 0 or -errno, nothing left behind. */
int log_start(void);

/* Removes the control files and forgets every line. */
void log_stop(void);

#ifdef __cplusplus
}
#endif

#endif
