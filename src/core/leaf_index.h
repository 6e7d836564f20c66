// SPDX-License-Identifier: GPL-2.0
//
// The tables behind the look-ups of a leaf by its name and by its hwirq, as their
// writers see them. Process context, with g_drv_intr_lock held.
//
// A table holds for each key the first leaf in list order. Another leaf of the same key
// takes the place when the combiner of the first one goes. Leaves are entered while
// their combiner is the last one of combiner_list, so whoever is there already comes first.
#ifndef INTR_CORE_LEAF_INDEX_H
#define INTR_CORE_LEAF_INDEX_H

#include "core/records.h"

// Makes room for `count` further leaves. 0, or -ENOMEM with nothing lost.
[[nodiscard]] int drv_intr_index_reserve(u32 count);

// Enters the leaves of a combiner, for which there must be room.
void drv_intr_index_leaves(drv_intr_combiner &combiner);

// Takes them out, if they were entered: after the combiner is unlinked from
// combiner_list, and before its readers are waited for.
void drv_intr_unindex_leaves(drv_intr_combiner &combiner);

// Frees the tables that were replaced before the last synchronize_srcu.
void drv_intr_free_replaced_tables();

#endif
