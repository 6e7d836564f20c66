// SPDX-License-Identifier: GPL-2.0
//
// Taking a parent line into use, and releasing it.
#ifndef INTR_COMBINER_PARENT_SETUP_H
#define INTR_COMBINER_PARENT_SETUP_H

#include "core/records.h"

// Process context, g_drv_intr_lock held, all of them.

// Before the line is touched: refuses the line of another combiner or driver, and a
// leaf that somebody uses or whose combiner is direct; claims a leaf that is free, and
// takes the nesting level from it before locks of that level are made. 0 or -EFAULT.
[[nodiscard]] int drv_intr_claim_parent(drv_intr_combiner &combiner, u32 virq);

// Lets go of a claimed leaf. The last step of tear-down: until then the claim
// keeps the leaf's virq in place.
void drv_intr_release_parent(drv_intr_combiner &combiner);

// From here on the line is disabled, until its chained handler is installed.
void drv_intr_disable_parent(drv_intr_combiner &combiner, u32 virq);

// Trigger type, monitor, handler data, thread. 0 or a negative code; what was done
// shows in the record.
[[nodiscard]] int drv_intr_combiner_init_virq(drv_intr_combiner &combiner, u32 virq);

// Installs the chained handler: from here on the parent's interrupts reach the
// dispatch. The last step of the set-up, since a source may be up already.
void drv_intr_start_parent(drv_intr_combiner &combiner);

// Disables the parent line for good; the chained handler may still be running.
void drv_intr_silence_parent(drv_intr_combiner &combiner);

// The other half, after a wait (synchronize_rcu) that began later and that several
// combiners may share: takes the chained handler off the line.
void drv_intr_detach_parent(drv_intr_combiner &combiner);

// Stops the thread of a combiner that is detached. A line that was not taken into use
// so far gets back what was changed of it.
void drv_intr_combiner_close_virq(drv_intr_combiner &combiner);

#endif
