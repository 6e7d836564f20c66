// SPDX-License-Identifier: GPL-2.0
//
// Combiners without a platform device: behind GPIO pins of the board, and the
// up to four combiners of a plug-in card, which has a configuration of its own.
//
// Process context, with g_drv_intr_lock held by the caller unless said otherwise.
#ifndef INTR_DISCOVERY_CARD_H
#define INTR_DISCOVERY_CARD_H

#include "core/records.h"

// The number of the card with this instance id. 0, or -EINVAL for the id of none,
// with card_no untouched. Any context, no lock.
[[nodiscard]] int drv_intr_get_card_no(u32 inst_id, u32 &card_no);

// Brings up the combiners that the card's configuration names. 0, -EINVAL for an
// invalid instance id, or -EFAULT with nothing of the card left; a card of which
// a combiner exists is refused and stays as it is.
[[nodiscard]] int drv_intr_init_card_combiner(drv_intr_ctrl &ctrl, u32 inst_id);

// Frees the card's combiners of the set bits (0 to 3) that exist.
void drv_intr_free_card_combiner(u32 card_no, u32 bitmap);

#endif
