// SPDX-License-Identifier: GPL-2.0
//
// Finding a leaf by its name, and giving it a Linux interrupt. The caller is
// inside an srcu_reader or holds g_drv_intr_lock.
#ifndef INTR_DELIVERY_MAPPING_H
#define INTR_DELIVERY_MAPPING_H

#include "core/records.h"

// The leaf, or null after an information line under the caller's description.
// Any context.
[[nodiscard]] drv_intr_irq_info *drv_intr_find_leaf(const char *desc, u32 index_id, u32 type);

// The same for a leaf that is to be mapped, which is how its line puts it.
[[nodiscard]] drv_intr_irq_info *drv_intr_find_leaf_to_map(u32 index_id, u32 type);

// The leaf's virq, mapped on demand; 0 when it cannot be mapped. Process
// context, with the leaf's `lock` held.
[[nodiscard]] u32 drv_intr_map_leaf(drv_intr_irq_info &irq_info);

#endif
