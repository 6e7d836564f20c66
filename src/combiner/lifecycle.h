// SPDX-License-Identifier: GPL-2.0
//
// Bring-up and tear-down of a combiner.
//
// Bring-up has two phases and undoes nothing by itself: each step records what
// it made, and the one tear-down undoes what the record shows, also half-built.
//
// Process context, with g_drv_intr_lock held by the caller.
#ifndef INTR_COMBINER_LIFECYCLE_H
#define INTR_COMBINER_LIFECYCLE_H

#include "core/records.h"

// What a combiner asks of whoever requests its leaves; delivery provides it.
struct drv_intr_leaf_users {
	// Unmaps a leaf that was mapped only as a combiner's parent line. Process
	// context, with the leaf's `lock` held.
	void (*unmap_parent_leaf)(drv_intr_irq_info &irq_info);
	// Drops callback and subscribers of a leaf, then releases it. Process
	// context; takes the leaf's `lock` itself.
	void (*abandon)(drv_intr_irq_info &irq_info);
};
extern const drv_intr_leaf_users g_drv_intr_leaf_users;

// Creates the record, appends it to combiner_list and reads its configuration;
// what could not be read is missing in the record, but the combiner lives. No
// hardware is touched. Null when the record or its name cannot be made.
[[nodiscard]] drv_intr_combiner *drv_intr_combiner_init_soft(drv_intr_ctrl &ctrl, u32 combiner_id,
							     const char *cfg_combiner_name,
							     u32 inst_id);

// Brings the combiner up on the parent line virq. device may be null. 0 or a
// negative code; after a failure the caller unlinks and frees the combiner.
[[nodiscard]] int drv_intr_combiner_init(drv_intr_combiner &combiner, platform_device *device,
					 u32 virq);

// Takes a combiner, and those nested behind its leaves, off combiner_list. Where
// several are to be freed, all are unlinked first: they are then waited for together.
void drv_intr_combiner_unlink(drv_intr_combiner &combiner);

// Waits for the readers and the running handlers of all combiners that are unlinked,
// and detaches their parent lines.
void drv_intr_close_unlinked(drv_intr_ctrl &ctrl);

// Tears down a combiner that is unlinked, always to the end, and frees it. Closes it
// unless that was done; releases leaves that clients still hold and frees combiners
// nested behind its leaves.
void drv_intr_combiner_free(drv_intr_combiner &combiner);

// Unlinks, unless that was done, and frees.
void drv_intr_combiner_remove(drv_intr_combiner &combiner);

// The first combiner of that id in combiner_list, or else among the unlinked ones.
[[nodiscard]] drv_intr_combiner *drv_intr_get_combiner_to_free(u32 combiner_id);

// The combiners with the ids of the set bits, in ascending order; ids without one are skipped.
void drv_intr_free_combiner_by_bitmap(u32 bitmap);
void drv_intr_all_combiner_free(drv_intr_ctrl &ctrl);
// Unlinks and closes them all, to be freed one by one.
void drv_intr_all_combiner_close(drv_intr_ctrl &ctrl);

#endif
