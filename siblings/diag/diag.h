/* SPDX-License-Identifier: GPL-2.0 */
/*
 * Start and stop of the diagnostics module. Process context.
 * What it offers to others is declared in intr/siblings.h.
 */
#ifndef DIAG_DIAG_H
#define DIAG_DIAG_H

#ifdef __cplusplus
extern "C" {
#endif

/* Makes the proc directory "diag". Return: 0 or -ENOMEM. */
int diag_start(void);

/* Removes it. Siblings with control files stop before. */
void diag_stop(void);

#ifdef __cplusplus
}
#endif

#endif
