/* SPDX-License-Identifier: GPL-2.0 */
/* What the virtual board offers to its home and to the test client. */
#ifndef INTR_BOARD_BOARD_H
#define INTR_BOARD_BOARD_H

#include "port.h"

#ifdef __cplusplus
extern "C" {
#endif

int board_start(void);
void board_stop(void);

/*
 * The board knows no leaves, as it is there before the driver: whoever can map
 * a leaf to its virq says so here, and takes it back with null.
 * Process context.
 */
void board_set_leaf_resolver(u32 (*resolver)(u32 index_id, u32 type));

/* The test client; started after the board. Stopping releases every leaf it registered. */
int client_start(void);
void client_stop(void);

/* The driver has gone, and with it every leaf and callback. */
void client_forget_all(void);

#ifdef __cplusplus
}
#endif

#endif
