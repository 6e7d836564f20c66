// SPDX-License-Identifier: GPL-2.0
//
// The one Linux interrupt request of a leaf, and its handler.
//
// One occurrence: the flow handler masks the leaf (enable off, status cleared),
// runs the handler (subscribers first, then the callback), and unmasks it (status cleared, enable
// on); a threaded leaf is unmasked once its thread function has returned. On a direct combiner
// masking disabled the parent line, which the handler enables again, or the unmask of a threaded
// leaf.
#include "delivery/request.h"

#include "combiner/lifecycle.h"
#include "combiner/parent.h"
#include "core/log.h"
#include "delivery/notify.h"

// A leaf with `sync` on a threaded combiner has its handler run in a combiner's
// thread, where dispatch has turned interrupts off. The handler may sleep there,
// so they are turned on while it runs; the flow handler holds no lock meanwhile
// and finds them off again.
class [[nodiscard]] may_sleep_guard {
public:
	explicit may_sleep_guard(const drv_intr_combiner &combiner)
		: enabled_(combiner.threaded != 0 && in_task() && irqs_disabled())
	{
		if (enabled_)
			local_irq_enable();
	}
	~may_sleep_guard()
	{
		if (enabled_)
			local_irq_disable();
	}
	may_sleep_guard(const may_sleep_guard &) = delete;
	may_sleep_guard &operator=(const may_sleep_guard &) = delete;

private:
	bool enabled_;
};

// Marks the leaf's handler as running, and where. It never runs twice at once. The
// mark and the look at `handler` pair with drv_intr_clear_handler.
class [[nodiscard]] running_mark {
public:
	explicit running_mark(drv_intr_irq_info &irq_info) : irq_info_(irq_info)
	{
		write_once(irq_info_.handler_task, get_current());
		store_ordered(irq_info_.handler_seq, read_once(irq_info_.handler_seq) + 1);
	}
	~running_mark()
	{
		write_once(irq_info_.handler_task, static_cast<const task_struct *>(nullptr));
		store_release(irq_info_.handler_seq, read_once(irq_info_.handler_seq) + 1);
	}
	running_mark(const running_mark &) = delete;
	running_mark &operator=(const running_mark &) = delete;

private:
	drv_intr_irq_info &irq_info_;
};

static void run_callback(const char *desc, drv_intr_irq_info &irq_info, bool traced)
{
	const drv_intr_hwirq_cfg &cfg = irq_info.hwirq_cfg;
	const drv_intr_handler handler = load_ordered(irq_info.handler);

	if (!handler)
		return;
	intr_trace_if(traced, "[%s]begin callback", desc);
	handler(cfg.index_id, cfg.type, read_once(irq_info.handler_data));
	intr_trace_if(traced, "[%s]end callback", desc);
}

// A threaded leaf is still masked when its handler returns: with the parent enabled
// already, a source that is up would interrupt at once, for a leaf whose mask disables
// nothing any more, and again, until the thread that unmasks it never runs. A leaf that
// was disabled meanwhile gets no unmask, and its own disable keeps the parent disabled.
static bool unmask_enables_parent(const drv_intr_irq_info &irq_info, u32 virq)
{
	u32 depth;

	return irq_info.hwirq_cfg.sync == 0 && irq_get_depth(virq, &depth) == 0 && depth == 0;
}

extern "C" {
static int drv_intr_irq_handler(int virq_arg, void *cookie)
{
	static constexpr char desc[] = "intr irq handler";
	auto &irq_info = *static_cast<drv_intr_irq_info *>(cookie);
	drv_intr_combiner &combiner = *irq_info.combiner;
	const drv_intr_hwirq_cfg &cfg = irq_info.hwirq_cfg;
	const u32 virq = static_cast<u32>(virq_arg);
	const bool traced = drv_intr_trace_enabled(virq);
	const may_sleep_guard may_sleep(combiner);
	const running_mark running(irq_info);

	intr_trace_if(traced, "[%s]enter, virq=%u, index_id=0x%x, type=%d", desc, virq,
		      cfg.index_id, cfg.type);
	if (!irq_info.pid_list.empty())
		drv_intr_notify_all_pid(irq_info);
	run_callback(desc, irq_info, traced);
	if (combiner.common_cfg.direct != 0) {
		intr_trace_if(traced, "[%s]enable parent irq, virq=%u", desc, combiner.virq);
		if (!unmask_enables_parent(irq_info, virq))
			drv_intr_mask_enable_parent(irq_info);
	}
	intr_trace_if(traced, "[%s]success, virq=%u, index_id=0x%x, type=%d", desc, virq,
		      cfg.index_id, cfg.type);
	return IRQ_HANDLED;
}
}

// A task never waits here for a handler that interrupted it: it does not run meanwhile.
bool drv_intr_may_wait(const char *desc, const drv_intr_irq_info &irq_info)
{
	const char *where = nullptr;

	if (!in_task())
		where = "an interrupt";
	else if (read_once(irq_info.handler_task) == get_current())
		where = "the leaf's own callback";
	if (!where)
		return true;
	intr_err("[%s]refused in %s, index_id=0x%x, type=%u", desc, where,
		 irq_info.hwirq_cfg.index_id, irq_info.hwirq_cfg.type);
	return false;
}

static void wait_handler_idle(const drv_intr_irq_info &irq_info)
{
	const u32 seq = load_ordered(irq_info.handler_seq);

	if ((seq & 1) == 0)
		return;
	while (load_acquire(irq_info.handler_seq) == seq)
		msleep(1);
}

void drv_intr_clear_handler(drv_intr_irq_info &irq_info)
{
	store_ordered(irq_info.handler, static_cast<drv_intr_handler>(nullptr));
	wait_handler_idle(irq_info);
}

// The kernel's free_irq spins until the handler is idle. A handler in the
// combiner's thread may sleep, and on one CPU the spinning would never let it
// go on: disable the leaf and sleep until it is through.
static void release_request(drv_intr_irq_info &irq_info)
{
	const u32 virq = irq_info.virq;

	{
		const raw_spinlock_guard guard(irq_info.enable_lock);
		irq_info.retiring = 1;
	}
	const bool waits = irq_info.hwirq_cfg.sync != 0 && irq_info.combiner->threaded != 0;

	if (waits) {
		disable_irq_nosync(virq);
		wait_handler_idle(irq_info);
	}
	free_irq(virq, &irq_info);
	if (waits && irq_has_action(virq)) // the last release would have reset the depth
		enable_irq(virq);
}

void drv_intr_enable_leaf(drv_intr_irq_info &irq_info, u32 virq)
{
	if (irq_info.starting != 0)
		irq_info.held_enables++;
	else
		enable_irq(virq);
}

// A request starts the leaf and with that forgets all disables: an enable that has
// seen one of them would come once too often.
class [[nodiscard]] start_guard {
public:
	explicit start_guard(drv_intr_irq_info &irq_info) : irq_info_(irq_info)
	{
		const raw_spinlock_guard guard(irq_info_.enable_lock);

		irq_info_.starting = 1;
	}
	~start_guard()
	{
		const raw_spinlock_guard guard(irq_info_.enable_lock);

		irq_info_.starting = 0;
		for (; irq_info_.held_enables > 0; irq_info_.held_enables--)
			enable_irq(irq_info_.virq);
	}
	start_guard(const start_guard &) = delete;
	start_guard &operator=(const start_guard &) = delete;

private:
	drv_intr_irq_info &irq_info_;
};

// A kernel that threads handlers by itself would run that of a leaf with `sync` with
// bottom halves off: in a thread, by all that it can see, and yet unable to sleep.
static int request_leaf(drv_intr_irq_info &irq_info)
{
	const u32 virq = irq_info.virq;
	const start_guard starting(irq_info);

	if (irq_info.hwirq_cfg.sync != 0)
		return request_threaded_irq(virq, drv_intr_irq_handler, nullptr,
					    IRQF_SHARED | IRQF_NO_THREAD, "drv_irq_sync_handler",
					    &irq_info);
	return request_threaded_irq(virq, nullptr, drv_intr_irq_handler, IRQF_SHARED | IRQF_ONESHOT,
				    "drv_irq_async_handler", &irq_info);
}

int drv_intr_request_irq(drv_intr_irq_info &irq_info)
{
	static constexpr char desc[] = "intr request irq";
	const drv_intr_hwirq_cfg &cfg = irq_info.hwirq_cfg;
	const u32 virq = irq_info.virq;

	intr_info("[%s]enter, index_id=0x%x, type=%u", desc, cfg.index_id, cfg.type);
	if (irq_info.requested) {
		intr_info("[%s]already requested", desc);
		return 0;
	}
	if (irq_info.cascaded) {
		intr_err("[%s]leaf is the parent of combiner %u, index_id=0x%x, type=%u", desc,
			 irq_info.cascaded->combiner_id, cfg.index_id, cfg.type);
		return -EFAULT;
	}
	int ret = request_leaf(irq_info);
	if (ret != 0) {
		intr_err("[%s]request irq fail, ret=%d", desc, ret);
		return -EFAULT;
	}
	ret = drv_intr_monitor_set_param(virq, virq, cfg.allow_max, cfg.suppress_ms, cfg.policy,
					 nullptr);
	if (ret != 0) {
		intr_err("[%s]set interrupt suppress info fail, ret=%d", desc, ret);
		release_request(irq_info);
		return -EFAULT;
	}
	irq_info.requested = 1;
	// Starting the leaf undid the disable of the parent's set-up or of the leaf's
	// last shut-down; what is left are those of its releases.
	if (irq_info.combiner->common_cfg.direct != 0)
		drv_intr_run_deferred_enables(*irq_info.combiner);
	return 0;
}

// Lock-free users of the virq: enable and disable hold enable_lock while they
// use it; a scan reads and dispatches it with interrupts off. Once both are
// through, the kernel may give the virq to another line. The tear-down of the
// combiner has waited for all its leaves before it releases the first.
static void retire_virq(drv_intr_irq_info &irq_info)
{
	{
		const raw_spinlock_guard guard(irq_info.enable_lock);
		// A client may have enabled a leaf that was never requested; the
		// mapping goes without shutting the line down, and its enable field
		// would stay on.
		disable_irq_nosync(irq_info.virq);
		write_once(irq_info.virq, 0u);
	}
	if (read_once(irq_info.combiner->detached) == 0)
		synchronize_rcu();
}

// A client that requested the virq by itself has it for as long as it wants.
static void keep_mapping(const char *desc, drv_intr_irq_info &irq_info)
{
	intr_err("[%s]virq=%u is requested by another driver, mapping stays, index_id=0x%x, "
		 "type=%u",
		 desc, irq_info.virq, irq_info.hwirq_cfg.index_id, irq_info.hwirq_cfg.type);
	const raw_spinlock_guard guard(irq_info.enable_lock);
	irq_info.retiring = 0;
}

int drv_intr_free_irq(drv_intr_irq_info &irq_info)
{
	static constexpr char desc[] = "intr free irq";
	const u32 virq = irq_info.virq;

	if (virq == 0)
		return 0;
	intr_info("[%s]enter, virq=%u, hwirq=%u", desc, virq, irq_info.hwirq_cfg.hwirq);
	if (!irq_info.pid_list.empty() || read_once(irq_info.handler)) {
		intr_info("[%s]success, pid list not empty or handler not null, skip free irq",
			  desc);
		return 0;
	}
	if (irq_info.cascaded) {
		intr_info("[%s]success, leaf is the parent of combiner %u, skip free irq", desc,
			  irq_info.cascaded->combiner_id);
		return 0;
	}
	if (irq_info.requested) {
		const int ret = drv_intr_monitor_unset_param(virq, virq);

		if (ret != 0)
			intr_err("[%s]unset interrupt suppress info fail, ret=%d", desc, ret);
		release_request(irq_info);
		irq_info.requested = 0;
	}
	if (irq_has_action(virq)) {
		keep_mapping(desc, irq_info);
		return 0;
	}
	retire_virq(irq_info);
	irq_dispose_mapping(virq);
	if (irq_info.combiner->common_cfg.direct != 0) {
		drv_intr_mask_enable_parent(irq_info);
		drv_intr_defer_parent_enable(*irq_info.combiner);
	}
	intr_info("[%s]success", desc);
	return 0;
}

int drv_intr_unregist_leaf(drv_intr_irq_info &irq_info)
{
	static constexpr const char *desc = drv_intr_unregist_desc;

	intr_info("[%s]enter, index_id=0x%x, type=%d", desc, irq_info.hwirq_cfg.index_id,
		  irq_info.hwirq_cfg.type);
	drv_intr_clear_handler(irq_info);
	const int ret = drv_intr_free_irq(irq_info);
	if (ret != 0) {
		intr_err("[%s]free irq fail, ret=%d", desc, ret);
		return ret;
	}
	intr_info("[%s]success", desc);
	return 0;
}

static void unmap_parent_leaf(drv_intr_irq_info &irq_info)
{
	(void)drv_intr_unregist_leaf(irq_info); // says what it does
}

static void abandon_leaf(drv_intr_irq_info &irq_info)
{
	const mutex_guard guard(irq_info.lock);

	drv_intr_clear_handler(irq_info);
	{
		const mutex_guard pid_guard(irq_info.pid_list_lock);

		while (drv_intr_pid_info *pid_info = irq_info.pid_list.first())
			drv_intr_del_pid(irq_info, *pid_info, 0);
	}
	(void)drv_intr_free_irq(irq_info); // always 0
}

constinit const drv_intr_leaf_users g_drv_intr_leaf_users = {
	.unmap_parent_leaf = unmap_parent_leaf,
	.abandon = abandon_leaf,
};
