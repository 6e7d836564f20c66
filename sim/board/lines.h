/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The virtual board's parent lines: inputs of the machine's interrupt
 * controller, and behind them the pins of a GPIO controller of the board's own,
 * whose interrupts have no end-of-interrupt operation.
 */
#ifndef INTR_BOARD_LINES_H
#define INTR_BOARD_LINES_H

#define BOARD_LINES 40
#define BOARD_GPIO_LINE 32	/* the first one on a pin */
#define BOARD_GPIO_BASE 400	/* its GPIO number; the others follow */
#define BOARD_ACPI_LINES 3	/* so many, from 0 on, belong to the ACPI device */

#endif
