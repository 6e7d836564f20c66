// SPDX-License-Identifier: GPL-2.0
//
// A process's subscription of a leaf, by its netlink port: the counterpart of a
// kernel client's registration. Lines are logged under the caller's description.
//
// Process context, may sleep, no lock held.
#ifndef INTR_DELIVERY_SUBSCRIPTION_H
#define INTR_DELIVERY_SUBSCRIPTION_H

#include "core/records.h"

// Maps and requests the leaf as needed. A port that has the leaf already keeps its
// one subscription, which counts as success. 0, or -EFAULT or -ENOMEM with nothing
// of it left; -EFAULT also for a leaf that has DRV_INTR_SUBSCRIBERS_MAX ports.
[[nodiscard]] int drv_intr_subscribe(const char *desc, u32 index_id, u32 type, u32 pid);

// Ends one subscription of the port, and releases the leaf with its last user. 0, or
// -EFAULT for an unknown leaf or a port without subscription.
[[nodiscard]] int drv_intr_unsubscribe(const char *desc, u32 index_id, u32 type, u32 pid);

// Ends all subscriptions of a port whose socket was closed, and releases the leaves that
// had no other user. Waits for the handlers of these.
void drv_intr_unsubscribe_port(u32 pid);

#endif
