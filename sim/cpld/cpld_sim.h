/* SPDX-License-Identifier: GPL-2.0 */
/* The simulated CPLDs as the virtual board and its test client drive them. */
#ifndef CPLD_CPLD_SIM_H
#define CPLD_CPLD_SIM_H

#ifdef __cplusplus
extern "C" {
#endif

/*
 * The hook is called for a line after every change on its way: a register
 * write or a source, also when the line's level stays. It is called without a
 * lock of this module, in the context of the access that made the change, with
 * the level that the change left, and may be called for one line on two CPUs at
 * once: ask cpld_sim_line_level for the level that is true now. Process context;
 * returns when the old hook is no longer running.
 */
void cpld_sim_set_line_hook(void (*hook)(u32 line, int level));

/* 1 while the line is asserted. Any context; 0 for a line that has no source. */
int cpld_sim_line_level(u32 line);

/* Any context. Return: 0, or -ENOENT: no source of that name. */
int cpld_sim_source(const char *name, int asserted);

/* Puts "mark TEXT" into the trace, if that is on. Any context; cut at 63 characters. */
void cpld_sim_mark(const char *text);

#ifdef __cplusplus
}
#endif

#endif
