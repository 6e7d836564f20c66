// SPDX-License-Identifier: GPL-2.0
//
// Notification of user-space processes.
//
// A message never waits: it is allocated without sleeping and sent without
// blocking, and a receiver that cannot take it is forgotten. The leaf is
// disabled before its message is sent: a receiver may answer at once, on
// another CPU, and its enable must find that disable.
//
// Whoever binds the port of a subscriber that has gone would get its messages, and
// could keep its leaves disabled by not answering. So a subscription does not wait
// for a message to be refused: it ends when the socket is closed.
#include "delivery/notify.h"

#include "core/log.h"
#include "delivery/request.h"
#include "delivery/subscription.h"
#include "uapi/intr.h"

static constexpr char notify_pid_desc[] = "intr notify pid";
static constexpr char notify_all_desc[] = "drv intr notify all pid";

// What netlink_unicast gives for a port without a socket: -ECONNREFUSED.
static constexpr int NO_SOCKET = -111;

static netlink_notifier port_notifier;

int drv_intr_init_netlink_ker(u32 netlink_id)
{
	static constexpr char desc[] = "intr init netlink ker";

	intr_info("[%s]enter, netlink_id=%u", desc, netlink_id);
	// Before any process can open a socket: none may be closed unnoticed.
	port_notifier.protocol = netlink_id;
	port_notifier.released = drv_intr_unsubscribe_port;
	const int ret = netlink_register_notifier(&port_notifier);
	if (ret != 0) {
		intr_err("[%s]register netlink notifier fail, ret=%d", desc, ret);
		return -EINVAL;
	}
	sock *socket = netlink_kernel_create(netlink_id);
	if (!socket) {
		intr_err("[%s]create netlink socket fail", desc);
		netlink_unregister_notifier(&port_notifier);
		return -EINVAL;
	}
	store_release(drv_intr_get_ctrl()->nl_sock, socket);
	intr_info("[%s]success", desc);
	return 0;
}

void drv_intr_uninit_netlink_ker()
{
	static constexpr char desc[] = "intr uninit netlink ker";
	sock *const none = nullptr;

	intr_info("[%s]enter", desc);
	sock *socket = exchange(drv_intr_get_ctrl()->nl_sock, none);
	if (socket) {
		synchronize_srcu(); // leaves are still delivered: pairs with the reader in
				    // notify_all
		netlink_kernel_release(socket);
		netlink_unregister_notifier(&port_notifier);
	}
	intr_info("[%s]success", desc);
}

drv_intr_pid_info *drv_intr_add_pid(drv_intr_irq_info &irq_info, u32 pid)
{
	static constexpr char desc[] = "drv intr add pid";
	auto *pid_info = kzalloc<drv_intr_pid_info>();

	if (!pid_info) {
		intr_err("[%s]kzalloc fail", desc);
		return nullptr;
	}
	pid_info->pid = pid;
	const mutex_guard guard(irq_info.pid_list_lock);
	irq_info.pid_list.append(*pid_info);
	return pid_info;
}

static void remove_pid(drv_intr_pid_info &pid_info)
{
	list<drv_intr_pid_info>::unlink(pid_info);
	kfree(&pid_info);
}

void drv_intr_del_pid(drv_intr_irq_info &irq_info, drv_intr_pid_info &pid_info, u32 lock)
{
	if (lock == 0) {
		remove_pid(pid_info);
		return;
	}
	const mutex_guard guard(irq_info.pid_list_lock);
	remove_pid(pid_info);
}

drv_intr_pid_info *drv_intr_get_pid_info(drv_intr_irq_info &irq_info, u32 pid)
{
	for (drv_intr_pid_info &pid_info : irq_info.pid_list) {
		if (pid_info.pid == pid)
			return &pid_info;
	}
	return nullptr;
}

bool drv_intr_forget_pid(drv_intr_irq_info &irq_info, u32 pid)
{
	const mutex_guard guard(irq_info.pid_list_lock);
	drv_intr_pid_info *pid_info = drv_intr_get_pid_info(irq_info, pid);

	if (!pid_info)
		return false;
	drv_intr_del_pid(irq_info, *pid_info, 0);
	return true;
}

static void log_refused_message(int ret)
{
	intr_err("[%s]nlmsg_unicast fail, ret=%d", notify_pid_desc, ret);
}

static void log_end(int ret)
{
	intr_err("[%s]notify pid fail, ret=%d, del pid", notify_all_desc, ret);
}

bool drv_intr_forget_closed_pid(drv_intr_irq_info &irq_info, u32 pid)
{
	if (!irq_info.pid_list.empty() && drv_intr_forget_pid(irq_info, pid)) {
		// What the next message would have met.
		log_refused_message(NO_SOCKET);
		log_end(NO_SOCKET);
		return true;
	}
	// A message between the close and this call has met it already.
	if (read_once(irq_info.refused_pid) != pid)
		return false;
	write_once(irq_info.refused_pid, 0u);
	return true;
}

// The message for one occurrence of the leaf, or null with *ret set.
static sk_buff *make_message(const char *desc, const drv_intr_hwirq_cfg &cfg, int *ret)
{
	static constexpr u32 TYPE = 0, FLAGS = 0, KERNEL_PORT = 0, NO_GROUP = 0;
	static constexpr u32 payload_len = sizeof(drv_intr_nl_leaf);
	sk_buff *message = nlmsg_new(payload_len);

	if (!message) {
		intr_err("[%s]nlmsg_new fail", desc);
		*ret = -ENOMEM;
		return nullptr;
	}
	auto *leaf = static_cast<drv_intr_nl_leaf *>(
		nlmsg_put(message, KERNEL_PORT, 0, TYPE, payload_len, FLAGS));
	if (!leaf) {
		nlmsg_free(message);
		intr_err("[%s]nlmsg put fail, type=%d, payload_len=%d, flags=%d.", desc, TYPE,
			 payload_len, FLAGS);
		*ret = -EFAULT;
		return nullptr;
	}
	*leaf = {cfg.index_id, cfg.type};
	netlink_set_source(message, KERNEL_PORT, NO_GROUP);
	return message;
}

static void undo_disable(drv_intr_irq_info &irq_info, u32 virq)
{
	const raw_spinlock_guard guard(irq_info.enable_lock);

	drv_intr_enable_leaf(irq_info, virq);
}

// One message, which leaves the leaf disabled once. 0, or a negative code with the
// leaf as it was.
static int drv_intr_notify_pid(drv_intr_irq_info &irq_info, u32 pid)
{
	static constexpr const char *desc = notify_pid_desc;
	const drv_intr_hwirq_cfg &cfg = irq_info.hwirq_cfg;
	const u32 virq = read_once(irq_info.virq); // stays while its handler runs
	sock *socket = load_acquire(drv_intr_get_ctrl()->nl_sock);
	int ret = 0;

	if (!socket) {
		intr_err("[%s]no netlink socket, pid=%u", desc, pid);
		return -EFAULT;
	}
	sk_buff *message = make_message(desc, cfg, &ret);
	if (!message)
		return ret;
	disable_irq_nosync(virq);
	ret = netlink_unicast(socket, message, pid, true);
	if (ret < 0) {
		undo_disable(irq_info, virq);
		log_refused_message(ret);
		return ret;
	}
	intr_trace(virq, "[%s]notify pid success, index_id=0x%x, type=%d, pid=%u", desc,
		   cfg.index_id, cfg.type, pid);
	return 0;
}

// One more disable around a walk over several subscribers: the first may answer
// before the second has its message, and would enable the leaf too early.
class [[nodiscard]] extra_disable {
public:
	explicit extra_disable(drv_intr_irq_info &irq_info)
		: irq_info_(irq_info), virq_(read_once(irq_info.virq)),
		  several_(is_several(irq_info.pid_list))
	{
		if (several_)
			disable_irq_nosync(virq_);
	}
	~extra_disable()
	{
		if (several_)
			undo_disable(irq_info_, virq_);
	}
	extra_disable(const extra_disable &) = delete;
	extra_disable &operator=(const extra_disable &) = delete;

private:
	static bool is_several(list<drv_intr_pid_info> &pid_list)
	{
		auto at = pid_list.begin();

		return at != pid_list.end() && ++at != pid_list.end();
	}

	drv_intr_irq_info &irq_info_;
	u32 virq_;
	bool several_;
};

void drv_intr_notify_all_pid(drv_intr_irq_info &irq_info)
{
	if (irq_info.pid_list.empty())
		return;
	// A hard interrupt, or the tasklet from which the kernel replays such a leaf.
	if (!in_task()) {
		intr_err("[%s]not in task contex, just return",
			 notify_all_desc); // spelt as people search it
		return;
	}
	const srcu_reader reader;
	const mutex_guard guard(irq_info.pid_list_lock);
	const extra_disable disabled(irq_info);
	auto next = irq_info.pid_list.begin();
	while (next != irq_info.pid_list.end()) {
		drv_intr_pid_info &pid_info = *next;

		++next; // before the entry may go
		const int ret = drv_intr_notify_pid(irq_info, pid_info.pid);
		if (ret == 0)
			continue;
		log_end(ret);
		// Before the entry goes: pairs with drv_intr_forget_closed_pid.
		write_once(irq_info.refused_pid, pid_info.pid);
		drv_intr_del_pid(irq_info, pid_info, 0);
	}
}
