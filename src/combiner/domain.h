// SPDX-License-Identifier: GPL-2.0
//
// A combiner's interrupt domain, in which each leaf gets a virq when it is
// first mapped, and the chip of its leaves.
#ifndef INTR_COMBINER_DOMAIN_H
#define INTR_COMBINER_DOMAIN_H

#include "core/records.h"

// The chip's name is the combiner's, which must be set.
void drv_intr_init_combiner_chip(drv_intr_combiner &combiner);

// device may be null: the combiner then owns a firmware node named after it.
// 0 or -ENOMEM with nothing left behind. Process context.
[[nodiscard]] int drv_intr_domain_alloc(platform_device *device, drv_intr_combiner &combiner);

// Makes a leaf's line as its mapping made it, after it carried a chained handler:
// the kernel leaves it without flow handler and not to be requested.
void drv_intr_reset_leaf_line(drv_intr_irq_info &irq_info);

void drv_intr_free_fwnode(fwnode_handle *fwnode);

#endif
