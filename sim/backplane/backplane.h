/* SPDX-License-Identifier: GPL-2.0 */
/*
 * Start and stop of the backplane module. Process context.
 * What it offers to others is declared in intr/siblings.h.
 */
#ifndef BACKPLANE_BACKPLANE_H
#define BACKPLANE_BACKPLANE_H

#ifdef __cplusplus
extern "C" {
#endif

/* Registers the control file "backplane"; the type is 0. Return: 0 or -errno. */
int backplane_start(void);

/* Removes the control file. */
void backplane_stop(void);

#ifdef __cplusplus
}
#endif

#endif
