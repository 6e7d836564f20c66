// SPDX-License-Identifier: GPL-2.0
//
// The one Linux interrupt request of a leaf, shared by the kernel client and
// all subscribers, and the handler that delivers every occurrence to them.
//
// Process context, with the leaf's `lock` held by the caller, unless said
// otherwise. Never from the leaf's own handler or callback: release waits for it.
#ifndef INTR_DELIVERY_REQUEST_H
#define INTR_DELIVERY_REQUEST_H

#include "core/records.h"

// False, with an error line, where the leaf's `lock` or its handler must not be waited
// for: in an interrupt, and in the leaf's own callback, for which the lock's holder may
// be waiting. Any context, without the lock.
[[nodiscard]] bool drv_intr_may_wait(const char *desc, const drv_intr_irq_info &irq_info);

// Takes one disable of the leaf back, or changes nothing where there is none. Any
// context, with `enable_lock` held; `virq` is the leaf's.
void drv_intr_enable_leaf(drv_intr_irq_info &irq_info, u32 virq);

// The leaf is mapped. Requesting a requested leaf changes nothing. 0, or
// -EFAULT with the leaf mapped and not requested.
[[nodiscard]] int drv_intr_request_irq(drv_intr_irq_info &irq_info);

// Releases interrupt and mapping, unless a callback, a subscriber or a nested
// combiner still holds the leaf. Always 0.
int drv_intr_free_irq(drv_intr_irq_info &irq_info);

// Takes the callback out of the leaf. When it returns, no handler that may have
// seen the callback is running.
void drv_intr_clear_handler(drv_intr_irq_info &irq_info);

// Takes the callback back and releases the leaf. The result of drv_intr_free_irq.
inline constexpr char drv_intr_unregist_desc[] = "intr set unregist";
int drv_intr_unregist_leaf(drv_intr_irq_info &irq_info);

#endif
