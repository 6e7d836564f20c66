// SPDX-License-Identifier: GPL-2.0
//
// Combiners from platform devices.
#ifndef INTR_DISCOVERY_PLATFORM_H
#define INTR_DISCOVERY_PLATFORM_H

#include "core/records.h"

// Starts the combiners of the sources that cfg_type_bitmap names. 0, or the
// first failure's code with nothing undone. Process context, no lock held.
[[nodiscard]] int drv_intr_init_combiner(drv_intr_ctrl &ctrl);

// Unregisters the platform drivers that drv_intr_init_combiner registered; the
// driver core then removes their devices, and with them their combiners.
void drv_intr_unregister_drivers();

#endif
