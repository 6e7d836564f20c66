/* SPDX-License-Identifier: GPL-2.0 */
/* What the virtual board offers to tests of the host home. */
#ifndef INTR_BOARD_HOST_BOARD_H
#define INTR_BOARD_HOST_BOARD_H

#ifdef __cplusplus
extern "C" {
#endif

/*
 * The devices that the firmware describes, after host_start, which has none. By
 * device tree: "soc:irq_combiner@0" to "soc:irq_combiner@3" on parent lines 0 to
 * 3. By ACPI: "NETB0009:00" with parent lines 0 to 2 as its interrupts.
 */
void host_firmware_board(void);
void host_firmware_board_acpi(void);

#ifdef __cplusplus
}
#endif

#endif
