/* SPDX-License-Identifier: GPL-2.0 */
/* What the virtual board offers to tests of the host home. */
#ifndef INTR_BOARD_HOST_BOARD_H
#define INTR_BOARD_HOST_BOARD_H

#ifdef __cplusplus
extern "C" {
#endif

/*
 * The devices that the firmware's tree describes: "soc:irq_combiner@0" to
 * "soc:irq_combiner@3" on parent lines 0 to 3. After host_start, which has none.
 */
void host_firmware_board(void);

#ifdef __cplusplus
}
#endif

#endif
