// SPDX-License-Identifier: GPL-2.0
//
// What the files of the model share.
//
// The thread checker must see the orderings that the kernel and the hardware
// give, and no others, or it would not see the driver's races: paths that every
// interrupt takes use atomic words and the descriptor's own lock, no common one.
#ifndef INTR_HOST_INTERNAL_H
#define INTR_HOST_INTERNAL_H

#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "model.h"
#include "platform/kernel_api.h"

namespace model {

constexpr u32 cpu_count = 2;
constexpr unsigned long all_cpus = 3;
constexpr u32 first_virq = 16;
constexpr u32 virq_limit = 4096;

enum result : int {
	eperm = 1,
	enoent = 2,
	eintr = 4,
	eio = 5,
	enxio = 6,
	ebadf = 9,
	eagain = 11,
	enomem = 12,
	efault = 14,
	ebusy = 16,
	eexist = 17,
	enodev = 19,
	einval = 22,
	emfile = 24,
	enotty = 25,
	enosys = 38,
	eprotonosupport = 93,
	etimedout = 110,
	econnrefused = 111,
};

// check.cpp
[[gnu::format(printf, 1, 2)]] void bug(const char *format, ...);
[[gnu::format(printf, 1, 2)]] void kernel_log(const char *format, ...);
void kernel_log_reset();
std::string caller_name(); // "hardirq on CPU1", "softirq", "thread intr3-handler"

// Polls; what never comes is a bug, so that a test ends.
template <typename Done> void wait_until(Done done, const char *what)
{
	const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);

	for (u32 turn = 0; !done(); turn++) {
		if (std::chrono::steady_clock::now() > deadline) {
			bug("%s: no end after 30 seconds", what);
			return;
		}
		if (turn < 100)
			std::this_thread::yield();
		else
			std::this_thread::sleep_for(std::chrono::microseconds(50));
	}
}

// A barrier that the thread checker does not take for an ordering of its own.
inline void full_barrier()
{
#if defined(__x86_64__)
	asm volatile("mfence" ::: "memory");
#elif defined(__aarch64__)
	asm volatile("dmb ish" ::: "memory");
#else
#error "a full memory barrier for this machine goes here"
#endif
}

// service.cpp: the functions of kernel_api.h, counted; the fallible ones can be made to fail.
enum class service : u32 {
#define FALLIBLE(name) name,
#define INFALLIBLE(name) name,
#include "services.inc"
#undef FALLIBLE
#undef INFALLIBLE
	count
};

void count_call(service which);
[[nodiscard]] bool fails(service which, long &ret); // counts the call too
void services_reset();

// Moments of host_at that are no call of the driver's.
enum class moment : u32 { line_moves, depth_seen, irq_enabled, count };
void reached(moment here);

// lock.cpp
enum lock_class : u32 {
	class_mutex, // + enum plat_mutex_kind
	class_spin = class_mutex + PLAT_MUTEX_KINDS, // + kind * levels + level
	class_desc = class_spin + PLAT_SPIN_KINDS * PLAT_NEST_LEVELS, // never given a level
	class_desc_level, // + level
	class_request = class_desc_level + PLAT_NEST_LEVELS,
	class_request_level,
	class_affinity = class_request_level + PLAT_NEST_LEVELS, // around every chip's set_affinity
	class_domain,
	class_count,
};

u32 deepest_class(u32 nest_level); // levels beyond the last share its class

struct context;

struct lock {
	explicit lock(u32 lock_class) : cls(lock_class) {}

	std::mutex mutex;
	std::atomic<context *> owner{nullptr};
	std::atomic<u32> cls;
};

// False: a bug handler let a misuse return, and nothing was done.
bool lock_acquire(lock &target, const char *what);
bool lock_try(lock &target); // a few times; no order is broken by it
bool lock_release(lock &target, const char *what);
void check_locks_freed(const void *start, size_t size);

class [[nodiscard]] sleeping_guard {
public:
	sleeping_guard(lock &target, const char *what);
	~sleeping_guard();
	sleeping_guard(const sleeping_guard &) = delete;
	sleeping_guard &operator=(const sleeping_guard &) = delete;

private:
	lock &target_;
	bool taken_;
};

// raw_spin_lock_irqsave for a scope.
class [[nodiscard]] raw_guard {
public:
	explicit raw_guard(lock &target);
	~raw_guard();
	raw_guard(const raw_guard &) = delete;
	raw_guard &operator=(const raw_guard &) = delete;

private:
	lock &target_;
	bool flags_;
	bool taken_;
};

// context.cpp: what the kernel keeps per CPU and per task, kept per thread.
struct reader_slot {
	std::atomic<u64> irqs_off{0}; // odd inside a region with interrupts off
	std::atomic<u64> srcu{0}; // odd inside a read-side section
};

struct context {
	context();
	~context();

	static constexpr u32 max_held = 16;

	std::shared_ptr<reader_slot> slot;
	task_struct *task = nullptr;
	u32 cpu = 0;
	u32 hardirq = 0;
	u32 softirq = 0;
	bool bottom_halves_off = false; // a task that may not sleep
	u32 srcu_depth = 0;
	const void *unended_line = nullptr; // of the root controller, taken by this CPU
	bool irqs_off = false;
	lock *held[max_held] = {};
	u32 held_count = 0;
};

context &current();
[[nodiscard]] bool irqs_save(); // off; returns what irqs_restore takes
void irqs_restore(bool were_off);
bool might_sleep(const char *what); // false: a bug handler let a misuse return
void wait_for_readers(std::atomic<u64> reader_slot::*section, const char *what);

class [[nodiscard]] hardirq_scope {
public:
	explicit hardirq_scope(u32 cpu);
	~hardirq_scope();
	hardirq_scope(const hardirq_scope &) = delete;
	hardirq_scope &operator=(const hardirq_scope &) = delete;

private:
	bool flags_;
};

// thread.cpp
task_struct *task_create(int (*thread)(void *), void *data, const char *name);
int task_wake(task_struct *task);
int task_stop(task_struct *task);
bool task_should_stop();
void task_set_interruptible();
void task_set_running();
void task_schedule();
bool tasks_idle();
u32 tasks_left(std::string &text);

// cpu.cpp: the CPUs, the root controller's lines, and what runs from a softirq.
void cpus_start();
void cpus_stop();
bool cpus_idle();
u64 activity(); // changes with everything that is taken, woken or queued
void note_activity();
void queue_replay(u32 virq);
void free_after_readers(irq_desc *desc);
irq_chip *line_chip();
irq_chip *gpio_chip();
bool is_line(irq_desc &desc); // of either chip, and not of the driver's
bool line_active(const irq_data &data);
void lines_start(); // all masked, nothing pending
void line_bind(u32 line, irq_desc *desc);
bool line_used(u32 line);

// gpio.cpp
bool on_gpio(u32 line);
void gpios_reset();

// irq.cpp
irq_desc *desc_of(u32 virq);
irq_desc *desc_alloc();
void desc_withdraw(irq_desc *desc); // out of the table; freed once nobody can be looking
u32 descs_left(std::string &text);
void descs_reset();

void disable_depth(irq_desc &desc);
void enable_depth(irq_desc &desc);
void startup(irq_desc &desc, bool resend);
void shutdown(irq_desc &desc);
void mask_line(irq_desc &desc);
void unmask_line(irq_desc &desc);
void mask_ack_line(irq_desc &desc);
int set_trigger(irq_desc &desc, u32 type);
int set_affinity(irq_desc &desc, unsigned long mask);
int handle_desc(irq_desc *desc);

// flow.cpp
void handle_bad(irq_desc *desc);
void handle_fasteoi(irq_desc *desc);
void handle_level(irq_desc *desc);
void set_handler(irq_desc &desc, plat_flow_handler handle, bool is_chained);

// request.cpp
void wake_action_thread(irq_desc &desc, struct irqaction &action);
void synchronize(irq_desc &desc);
void requests_reset();

// domain.cpp
// Of the lines, in the controller's numbers: shared interrupt 100, behind 32 of the CPUs' own.
constexpr unsigned long first_line = 132;
irq_domain *root_domain();
u32 create_mapping(irq_domain &domain, unsigned long hwirq);
u32 domains_left(std::string &text);
bool is_abandoned(const irq_data &data); // its domain is
void domains_reset();
bool fwnode_in_use(const fwnode_handle *fwnode);

// memory.cpp: the objects of one kind that exist, by address. Spread over many
// locks, so that unrelated threads are not ordered by them.
class object_set {
public:
	void add(const void *object, size_t size);
	bool remove(const void *object, size_t *size = nullptr); // false: there is none
	bool has(const void *object);
	u32 list(const char *what, std::string &text); // " <what> of N bytes" each
	void clear();

private:
	struct shard {
		std::mutex lock;
		std::map<const void *, size_t> objects;
	};

	shard &shard_of(const void *object);

	shard shards_[64];
};

// module.cpp: who holds the module that the driver is. False: it is going.
bool module_get();
void module_put();
bool module_survives_open_files(); // its start has not succeeded, and waits for them
void module_reset();

// user.cpp
size_t read_user(void *to, const void *user, size_t size); // bytes done
size_t write_user(void *user, const void *from, size_t size);

// A call of a process into the driver. What would harm the kernel later when
// it is left behind is a bug at its end.
class [[nodiscard]] process_call {
public:
	explicit process_call(const char *what) : what_(what) {}
	~process_call();
	process_call(const process_call &) = delete;
	process_call &operator=(const process_call &) = delete;

private:
	const char *what_;
};

// file.cpp: open files of processes.
int file_install(std::shared_ptr<file> opened); // a handle above 0
std::shared_ptr<file> file_of(int handle); // null: not open
std::shared_ptr<file> file_take(int handle);
u32 files_left(std::string &text);
void files_reset();

// misc.cpp, procfs.cpp, netlink.cpp: registered entries, directories, sockets and messages.
u32 misc_left(std::string &text);
void misc_reset();
u32 proc_left(std::string &text);
void proc_reset();
u32 netlink_left(std::string &text);
void netlink_reset();

// memory.cpp, driver_core.cpp
u32 memory_left(std::string &text);
void memory_reset();
u32 drivers_left(std::string &text);
void drivers_reset();

} // namespace model

struct cpumask {
	unsigned long bits;
};

struct fwnode_handle {
	std::string name;
	bool allocated; // by irq_domain_alloc_named_fwnode, not a device's own
};

struct inode {};

// An open file of a process: of a misc device or a proc entry.
struct file {
	std::string name;
	plat_misc_device *device = nullptr;
	std::shared_ptr<proc_dir_entry> entry;
	std::shared_ptr<seq_file> seq; // made by single_open
	bool writing = false;
	std::mutex lock; // over a read, a write or a seek
	long long position = 0;
};

struct irq_chip {
	const char *name;
	void (*irq_enable)(irq_data *data);
	void (*irq_disable)(irq_data *data);
	void (*irq_mask)(irq_data *data);
	void (*irq_unmask)(irq_data *data);
	void (*irq_eoi)(irq_data *data);
	int (*irq_set_affinity)(irq_data *data, const cpumask *mask, bool force);
	int (*irq_set_type)(irq_data *data, u32 type);
	int (*irq_retrigger)(irq_data *data);
	bool set_type_masked; // IRQCHIP_SET_TYPE_MASKED
	bool hardirq_only; // handle_enforce_irqctx
	bool affinity_pre_startup; // IRQCHIP_AFFINITY_PRE_STARTUP
};

struct irq_data {
	u32 irq = 0;
	std::atomic<unsigned long> hwirq{0};
	std::atomic<irq_domain *> domain{nullptr};
	irq_desc *desc = nullptr;
	std::atomic<irq_chip *> chip{nullptr};
	std::atomic<void *> chip_data{nullptr};
	std::atomic<unsigned long> effective{0};
};

namespace model {

// One request of a line. Linked and unlinked under the descriptor lock, walked without
// it by a handler that is marked in progress.
struct irqaction {
	plat_irq_handler handler;
	plat_irq_handler thread_fn;
	unsigned long flags;
	std::string name;
	void *cookie;
	u32 irq;
	std::atomic<irqaction *> next{nullptr};
	bool thread_forced = false; // its primary handler is the thread function
	task_struct *thread = nullptr;
	unsigned long thread_mask = 0;
	std::atomic<bool> run_thread{false};
	std::atomic<bool> ready{false};
};

extern irqaction chained_action;
extern irq_chip no_chip;

// irq_desc::state
enum : u32 {
	irqd_disabled = 1u << 0,
	irqd_masked = 1u << 1,
	irqd_in_progress = 1u << 2,
	irqd_started = 1u << 3,
	irqd_affinity_set = 1u << 4,
	irqd_activated = 1u << 5,
};

// irq_desc::istate
enum : u32 {
	irqs_pending = 1u << 0,
	irqs_replay = 1u << 1,
	irqs_oneshot = 1u << 2,
};

// Line settings and request flags, with the kernel's values.
enum : unsigned long {
	irq_type_mask = 0xf,
	irq_type_level = 0xc,
	irq_level = 1ul << 8,
	irq_per_cpu = 1ul << 9,
	irq_noprobe = 1ul << 10,
	irq_norequest = 1ul << 11,
	irq_noautoen = 1ul << 12,
	irq_no_balancing = 1ul << 13,
	irq_nothread = 1ul << 16,
	irq_disable_unlazy = 1ul << 19,
	irq_modifiable = irq_type_mask | irq_level | irq_per_cpu | irq_noprobe | irq_norequest |
			 irq_noautoen | irq_no_balancing | irq_nothread | irq_disable_unlazy,
	irqf_shared = 0x80,
	irqf_oneshot = 0x2000,
	irqf_no_thread = 0x10000,
	irqf_no_autoen = 0x80000,
};

constexpr int irq_none = 0;
constexpr int irq_handled = 1;
constexpr int irq_wake_thread = 2;

} // namespace model

struct irq_desc {
	explicit irq_desc(u32 virq);

	irq_data data;
	model::lock lock{model::class_desc};
	model::lock request_mutex{model::class_request};
	std::atomic<plat_flow_handler> handle_irq;
	std::atomic<void *> handler_data{nullptr};
	std::atomic<model::irqaction *> action{nullptr};
	std::atomic<u32> state; // changed under the lock, read without
	std::atomic<u32> threads_active{0};
	std::atomic<unsigned long> threads_oneshot{0};
	std::atomic<u32> counts[model::cpu_count] = {};
	// Under the lock:
	u32 istate = 0;
	std::atomic<u32> depth{1}; // read without
	unsigned long settings = 0;
	unsigned long affinity = model::all_cpus;

	bool is(u32 flags) const { return state.load(std::memory_order_acquire) & flags; }
	void set(u32 flags) { state.fetch_or(flags, std::memory_order_acq_rel); }
	void clear(u32 flags) { state.fetch_and(~flags, std::memory_order_acq_rel); }
	irq_chip &chip() { return *data.chip.load(std::memory_order_acquire); }
	void count_interrupt()
	{
		counts[model::current().cpu].fetch_add(1, std::memory_order_relaxed);
	}
};

#endif
