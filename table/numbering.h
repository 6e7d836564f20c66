// SPDX-License-Identifier: GPL-2.0
//
// How combiners and plug-in cards are numbered: for the driver, and for whoever
// foretells from outside what it will do.
#ifndef TABLE_NUMBERING_H
#define TABLE_NUMBERING_H

#include "intr/types.h"

// Ids below are combiners of the board; from here on they are those of cards.
inline constexpr u32 BOARD_COMBINERS = 32;
// Combiner i of card c is node "irq_combiner@i" of the card's own configuration.
inline constexpr u32 CARD_COMBINERS = 4;

// A card's combiner with `int_type` combiner has as parent line the leaf whose
// index_id is the card's number and whose type is this.
inline constexpr u32 CARD_LEAF_TYPE = 7;

inline constexpr u32 NO_CARD = 0xffff;

// Bits 31 to 24 of the instance id, or bits 15 to 0 where those are 0xff. NO_CARD
// there is no card, as in the board's own instance id.
[[nodiscard]] constexpr u32 card_number(u32 inst_id)
{
	const u32 high = inst_id >> 24, low = inst_id & 0xffff;

	return high != 0xff ? high : low;
}

// The instance id by which people name card 0 to 254.
[[nodiscard]] constexpr u32 card_instance(u32 card_no)
{
	return card_no << 24;
}

[[nodiscard]] constexpr u32 card_combiner_id(u32 card_no, u32 index)
{
	return BOARD_COMBINERS + CARD_COMBINERS * card_no + index;
}

#endif
