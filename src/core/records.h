// SPDX-License-Identifier: GPL-2.0
//
// The tree of records that everything works on: one control block owns the
// combiners, a combiner owns its configuration and its leaves, a leaf owns its
// subscribers. Every record is allocated zero-filled.
//
// A combiner is one parent line with the CPLD registers behind it. A leaf is
// one interrupt source behind it, reached through a chain of levels: level 0
// is nearest the parent line, level `level_num` - 1 belongs to the leaf alone.
// A register field is named by (`shift`, right-aligned `mask`) and occupies
// the bits `mask` << `shift`.
//
// Lifetime: see docs/architecture.md. In short, a record reached through
// `combiner_list` is alive inside an srcu_reader; the leaf lists are complete
// before the parent's handler exists and gone only after it is detached.
#ifndef INTR_CORE_RECORDS_H
#define INTR_CORE_RECORDS_H

#include "core/atomic.h"
#include "core/list.h"
#include "intr/drv_intr.h"
#include "platform/kernel.h"
#include "table/config_keys.h"
#include "table/numbering.h"

inline constexpr u32 DRV_INTR_BOARD_INST_ID = 0xffffffff;
inline constexpr size_t DRV_INTR_NAME_SIZE = 32;
// A combiner's configuration node, and the end of its device's name.
inline constexpr char DRV_INTR_COMBINER_NAME[] = "irq_combiner";
#define DRV_INTR_COMBINER_NAME_FORMAT "irq_combiner@%u"

struct drv_intr_global_cfg {
	u32 cfg_type_bitmap;
	u32 acpi_bitmap; // bit n: ACPI combiner n exists
	u32 gpio_bitmap; // bit n: GPIO combiner n exists
	u32 netlink_id;
};

struct drv_intr_common_cfg {
	u32 chip_id; // default CPLD chip of the leaves' levels
	u32 async; // not 0: leaves are demultiplexed by the combiner thread
	u32 direct; // not 0: the parent line is passed on, no level register is touched
	u32 gpio;
	u32 irq_type;
	u32 int_type;
	u32 allow_max;
	u32 suppress_ms;
	u32 policy;
};

// In the CPU-side register at physical address `reg_addr` the field becomes `value`.
struct drv_intr_cpu_cfg {
	u32 reg_addr;
	u32 shift;
	u32 mask;
	u32 value;
	list_node node;
};

struct drv_intr_level_cfg {
	u32 chip_id;
	u32 en_reg; // config::NO_REGISTER: no enable register, counts as enabled
	u32 status_reg;
	u32 shift; // the same in the enable and the status register
	u32 mask;
	u32 status_wc; // not 0: the status field is cleared by writing its bits
};

struct drv_intr_hwirq_cfg {
	u32 index_id;
	u32 type;
	u32 hwirq;
	u32 irq_type;
	u32 sync; // not 0: the leaf handler is the primary handler, else a thread function
	u32 allow_max;
	u32 suppress_ms;
	u32 policy;
	u32 level_num;
	drv_intr_level_cfg level[config::MAX_LEVELS];
	list_node node;
};

struct drv_intr_pid_info {
	list_node node;
	u32 pid; // netlink port id
};

struct drv_intr_combiner;
struct drv_intr_scan_plan; // combiner/scan_plan.h

struct drv_intr_irq_info {
	u32 virq; // 0: no mapping. Written under `lock` and `enable_lock`
	drv_intr_combiner *combiner;
	u32 requested; // under `lock`
	mutex pid_list_lock;
	list<drv_intr_pid_info> pid_list; // in order of subscription; under pid_list_lock
	drv_intr_handler handler; // written under `lock`, after handler_data
	void *handler_data;
	drv_intr_hwirq_cfg hwirq_cfg; // an item of the combiner's hwirq_cfg_list
	list_node node;

	// Serialises mapping, request, release, registration and subscription.
	// Process context; never taken by the leaf's handler or callback.
	mutex lock;
	// Makes "look at the depth, then enable" one step, and keeps `virq` in
	// place while it is used. Any context.
	raw_spinlock enable_lock;
	// Not 0 once a release of the interrupt has begun: no client may enable or
	// disable it meanwhile. Under `enable_lock`; a new mapping starts with 0.
	u32 retiring;
	// Not 0 while a request may start the leaf: enables that come meanwhile are
	// counted, and made good after it. Both under `enable_lock`.
	u32 starting;
	u32 held_enables;
	// Not 0 while the mask of this leaf keeps its direct parent disabled. Set by
	// the mask, cleared by whoever enables the parent for it.
	u32 parent_mask_disabled;
	// Odd while the leaf handler runs; written by the handler only.
	u32 handler_seq;
	// The task in which the handler runs, or which it interrupted; null while it
	// does not run. Only compared.
	const task_struct *handler_task;
	// Not 0: to be dispatched once by the combiner's thread, active or not. Set
	// under `parent_lock`, and by a new mapping cleared.
	u32 replay_due;
	// The last port that a message was refused by; 0: none, or its close was seen.
	u32 refused_pid;
	// Not 0: a subscriber's socket was closed, and whoever clears this releases the
	// leaf if nobody else uses it.
	u32 release_due;
	// Not 0 from before its chained handler is uninstalled until its line is as
	// mapped again: a scan, which reads it with interrupts off, leaves it out.
	u32 detached;
	// The combiner whose parent line this leaf is, or null. Written under `lock`
	// and `enable_lock`. No client may request, enable or disable such a leaf.
	drv_intr_combiner *cascaded;
};

// A board has more of these than of anything else. Where locks are not checked, and
// an allocation is rounded to a power of two, it takes 512 bytes, configuration included.
static_assert(sizeof(mutex) > 32 || sizeof(drv_intr_irq_info) <= 512);

enum class drv_intr_teardown : u32 {
	NONE, // in combiner_list
	UNLINKED, // readers and handlers may still be there
	CLOSED, // waited for: no reader, no invocation of the chained handler
};

struct drv_intr_combiner {
	list_node node;
	u32 combiner_id;
	u32 inst_id;
	u32 card_no;
	char name[DRV_INTR_NAME_SIZE];
	char cfg_combiner_name[DRV_INTR_NAME_SIZE];
	u32 parent_index_id; // with parent_type: the leaf that is the parent line (`int_type` 2)
	u32 parent_type;
	u32 virq; // of the parent line; 0 until it is set up
	u32 hwirq;
	fwnode_handle *fwnode; // only where no device supplies one
	irq_domain *domain; // compared by look-ups at any time
	u32 parent_int_cnt; // wraps; written by the chained handler only
	drv_intr_common_cfg common_cfg;
	list<drv_intr_cpu_cfg> cpu_cfg_list;
	list<drv_intr_cpu_cfg> cpu_default_cfg_list;
	list<drv_intr_hwirq_cfg> hwirq_cfg_list; // soon parts of the leaves' records
	task_struct *thread; // null, a task, or the error value of its creation
	unsigned long flags; // the bits below
	plat_irq_chip chip;
	list<drv_intr_irq_info> irq_info_list;
	// Null: the leaves are walked. Like them complete before the parent's handler exists.
	drv_intr_scan_plan *scan_plan;

	// The device whose probe made this combiner, or null. Only compared.
	platform_device *owner;
	// The leaf of another combiner that is the parent line, or null.
	drv_intr_irq_info *parent_leaf;
	// How many combiners this one is cascaded behind.
	u32 nest_level;
	// Set last in bring-up: from here on leaves may be mapped.
	u32 ready;
	// Not 0: the look-ups find its leaves. Under g_drv_intr_lock.
	u32 indexed;
	// Not 0: sync leaves have their handlers run in a thread, this combiner's own
	// or that of one further out, and may sleep.
	u32 threaded;
	// Guards `quiesced` and `deferred_enables` against enabling the parent line.
	raw_spinlock parent_lock;
	// Disables of a direct parent by releases of its leaf, whose enables are
	// deferred to the leaf's next request.
	u32 deferred_enables;
	// Set first in tear-down: from here on nothing enables the parent line.
	u32 quiesced;
	// What set-up did to the parent line: its virq from the disable to the
	// installation of the chained handler, else 0; whether that is installed.
	u32 disabled_virq;
	u32 chained;
	// How far tear-down has come, and the next combiner that has left combiner_list
	// and is not freed yet. Both under g_drv_intr_lock.
	drv_intr_teardown teardown;
	drv_intr_combiner *next_unlinked;
	// Not 0 once the parent line is disabled for good: a scan, which reads it with
	// interrupts off, dispatches no leaf any more.
	u32 detached;
};

inline constexpr unsigned DRV_INTR_SCAN_PENDING = 0;
// A leaf is due a replay; without a disable of the parent line.
inline constexpr unsigned DRV_INTR_REPLAY_PENDING = 1;

// Bring-up is through: its records do not change any more. Pairs with its last step.
[[nodiscard]] inline bool drv_intr_is_ready(const drv_intr_combiner &combiner)
{
	return load_acquire(combiner.ready) != 0;
}

struct drv_intr_ctrl {
	u32 int_debug_switch; // not 0: interrupt-path tracing on
	u32 debug_irq; // 0: trace every interrupt, else only this virq
	proc_dir_entry *proc_dir;
	sock *nl_sock; // null: no notification is sent. Used inside an srcu_reader
	drv_intr_global_cfg global_cfg;
	list<drv_intr_combiner> combiner_list; // written under g_drv_intr_lock
	// The first of those that have left it and are not freed yet. Under g_drv_intr_lock.
	drv_intr_combiner *unlinked;

	// Not 0: no combiner may be made any more. Under g_drv_intr_lock.
	u32 stopping;
};

extern drv_intr_ctrl g_drv_intr_ctrl;

// The one lock of writers: probe, remove, cards, start and stop, in process context.
extern mutex g_drv_intr_lock;

// Never null.
[[nodiscard]] drv_intr_ctrl *drv_intr_get_ctrl();

// Makes the control block empty, with both debug switches off, and its lock usable.
// Before anything else.
void drv_intr_ctrl_init();

// Reads the number of "irq_combiner@<number>". 0, or -EFAULT with *combiner_id untouched.
[[nodiscard]] int drv_intr_get_combiner_id(const char *text, u32 *combiner_id);

// The look-ups return the first match in list order, or null, and log nothing. Those of
// leaves take the same time whatever the number of leaves, but for virq 0: it gives the
// first leaf that is not mapped. They find the leaves of a combiner from the moment when
// all of its records are there until it is unlinked.
// Any context. The caller is inside an srcu_reader or holds g_drv_intr_lock.
[[nodiscard]] drv_intr_combiner *drv_intr_get_combiner(u32 combiner_id);
[[nodiscard]] drv_intr_irq_info *drv_intr_get_irq_info_by_virq(u32 virq);
[[nodiscard]] drv_intr_irq_info *drv_intr_get_irq_info_by_hwirq(drv_intr_combiner &combiner,
								u32 hwirq);
[[nodiscard]] drv_intr_irq_info *drv_intr_get_irq_info_by_index_type(u32 index_id, u32 type);

#endif
