// SPDX-License-Identifier: GPL-2.0
//
// Notification of user-space processes: the driver's netlink socket, and each
// leaf's subscribers. What a process sees of it stands in uapi/intr.h.
//
// Process context, may sleep.
#ifndef INTR_DELIVERY_NOTIFY_H
#define INTR_DELIVERY_NOTIFY_H

#include "core/records.h"

// Makes the socket of protocol number netlink_id, below 32 and not in use, and has
// subscriptions end with the sockets of their processes. 0, or -EINVAL: then no
// notification is sent.
[[nodiscard]] int drv_intr_init_netlink_ker(u32 netlink_id);

// Waits for sends that run, also from interrupt threads. Nothing to do without a socket.
void drv_intr_uninit_netlink_ker();

// Appends a subscriber, a second time too. Null when there is no memory. The entry may
// go at any moment once pid_list_lock is not held: look it up again.
[[nodiscard]] drv_intr_pid_info *drv_intr_add_pid(drv_intr_irq_info &irq_info, u32 pid);

// Unlinks and frees the entry. lock: not 0 takes pid_list_lock, 0 finds it held.
void drv_intr_del_pid(drv_intr_irq_info &irq_info, drv_intr_pid_info &pid_info, u32 lock);

// The first entry of this port, or null. The caller holds pid_list_lock: a send
// that fails frees its entry at any moment.
[[nodiscard]] drv_intr_pid_info *drv_intr_get_pid_info(drv_intr_irq_info &irq_info, u32 pid);

// Ends one subscription of this port. False: there was none. Takes pid_list_lock.
[[nodiscard]] bool drv_intr_forget_pid(drv_intr_irq_info &irq_info, u32 pid);

// The same for a port whose socket was closed, with the lines of a message that it
// refused. True also where such a message was faster. Process context.
[[nodiscard]] bool drv_intr_forget_closed_pid(drv_intr_irq_info &irq_info, u32 pid);

// One message to every subscriber, in order; a failed one ends the subscription.
// Any context: where it may not sleep nothing is sent, and with subscribers that
// is an error line.
void drv_intr_notify_all_pid(drv_intr_irq_info &irq_info);

#endif
