/* SPDX-License-Identifier: GPL-2.0 */
/* The board's GPIO controller in the kernel; its lines are counted from 0 here. */
#ifndef INTR_BOARD_KERNEL_GPIO_H
#define INTR_BOARD_KERNEL_GPIO_H

#include "port_board.h"

#define BOARD_GPIOS (BOARD_LINES - BOARD_GPIO_LINE)

/* 0 or -errno with nothing left behind. Stopping waits for deliveries that run. */
int board_gpio_start(void);
void board_gpio_stop(void);

/* The interrupt of a line. */
u32 board_gpio_virq(u32 line);
/* Sets or withdraws the line's pending mark. Any context. */
void board_gpio_set_pending(u32 line, bool pending);

#endif
