// SPDX-License-Identifier: GPL-2.0
//
// From one parent interrupt to the interrupts of the pending leaves.
#ifndef INTR_COMBINER_DISPATCH_H
#define INTR_COMBINER_DISPATCH_H

#include "core/records.h"

// Chained flow handler of a parent line; the handler data is the combiner.
// Hard-interrupt context, or, for a nested combiner, wherever the outer one
// dispatches with interrupts off.
extern "C" void drv_combiner_irq_handler(irq_desc *desc);

// Thread of a combiner with `async`; data is the combiner. Ends with 0 when
// asked to stop, a pending scan or not.
extern "C" int drv_intr_combiner_thread(void *data);

// Has the thread in which the leaf's handler runs dispatch the leaf once more, active or
// not. False, with nothing done, for a leaf whose handler runs elsewhere. Any context,
// with the leaf's descriptor lock held.
[[nodiscard]] bool drv_intr_replay_in_thread(drv_intr_irq_info &irq_info);

#endif
