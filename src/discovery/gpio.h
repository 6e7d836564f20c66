// SPDX-License-Identifier: GPL-2.0
//
// Combiners behind GPIO pins of the board.
#ifndef INTR_DISCOVERY_GPIO_H
#define INTR_DISCOVERY_GPIO_H

#include "core/records.h"

// Makes the pin an input. Its virq, not above 0 when it has none.
[[nodiscard]] int drv_intr_gpio_to_virq(u32 gpio);

// Brings up the combiners of gpio_bitmap. 0, or -EFAULT with none of them left.
// Process context, with g_drv_intr_lock held.
[[nodiscard]] int drv_intr_init_gpio_combiner(drv_intr_ctrl &ctrl);

#endif
