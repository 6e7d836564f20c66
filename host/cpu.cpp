// SPDX-License-Identifier: GPL-2.0
//
// The CPUs that take hard interrupts, the root interrupt controller, and the
// work of softirq context.
//
// A line of the controller is one word: pending (a latch, set by the source,
// cleared when a CPU takes the line), masked, and active from the taking to the
// end-of-interrupt. A line is deliverable when it is pending and neither masked
// nor active, so it never runs on two CPUs at once. The word orders what the
// hardware orders: raising, unmasking and end-of-interrupt before the taking.
// A line on a GPIO pin has no end-of-interrupt of its own: it is active until
// its handler returns, as the pin's controller ends its own interrupt then.
#include "internal.h"

#include <condition_variable>
#include <deque>
#include <set>
#include <vector>

namespace model {

enum : u32 {
	line_pending = 1u << 0,
	line_masked = 1u << 1,
	line_is_active = 1u << 2,
};

struct line {
	std::atomic<u32> state{line_masked};
	std::atomic<unsigned long> cpus{all_cpus};
	std::atomic<irq_desc *> desc{nullptr};
	std::atomic<bool> hold{false}; // whoever takes it waits
	std::atomic<bool> held{false};
};

struct hardirq_call {
	void (*function)(void *);
	void *argument;
};

static line lines[HOST_LINES];
static std::atomic<u32> wakeups{0};
static std::atomic<bool> stopping{false};
static std::atomic<u64> activity_count{0};
static std::atomic<u32> busy_cpus{0};
static std::thread cpus[cpu_count];

static std::mutex calls_lock;
static std::deque<hardirq_call> queued_calls;
static std::atomic<u32> queued_call_count{0};

static std::thread softirq;
static std::mutex softirq_lock;
static std::condition_variable softirq_wakeup;
static std::set<u32> replays;
static std::vector<irq_desc *> dead_descs;
static bool softirq_busy;
static bool softirq_stopping;

void note_activity()
{
	activity_count.fetch_add(1, std::memory_order_relaxed);
}

u64 activity()
{
	return activity_count.load(std::memory_order_relaxed);
}

static void wake_cpus()
{
	note_activity();
	full_barrier();
	wakeups.fetch_add(1, std::memory_order_relaxed);
	wakeups.notify_all();
}

static bool deliverable(u32 state)
{
	return (state & (line_pending | line_masked | line_is_active)) == line_pending;
}

static bool take(line &source, u32 cpu)
{
	u32 state = source.state.load(std::memory_order_relaxed);

	while (deliverable(state) && source.cpus.load(std::memory_order_relaxed) & 1ul << cpu)
		if (source.state.compare_exchange_weak(
			    state, (state & ~line_pending) | line_is_active,
			    std::memory_order_acquire, std::memory_order_relaxed))
			return true;
	return false;
}

static void end_line(line &source)
{
	if (current().unended_line == &source)
		current().unended_line = nullptr;
	source.state.fetch_and(~line_is_active, std::memory_order_release);
	wake_cpus();
}

static void wait_while_held(line &source)
{
	if (!source.hold.load(std::memory_order_acquire))
		return;
	source.held.store(true, std::memory_order_release);
	wait_until([&] { return !source.hold.load(std::memory_order_acquire); }, "held line");
	source.held.store(false, std::memory_order_release);
}

// Once ended, the line may be running on the other CPU: its word says nothing about
// this occurrence any more.
static void run_line(line &source)
{
	note_activity();
	context &self = current();

	self.unended_line = &source;
	wait_while_held(source);
	irq_desc *desc = source.desc.load(std::memory_order_acquire);
	if (!desc) { // disposed of since
		end_line(source);
		return;
	}
	const bool is_gpio = on_gpio(static_cast<u32>(&source - lines));
	handle_desc(desc);
	if (self.held_count)
		bug("interrupt %u: handler returned with a lock held", desc->data.irq);
	if (!self.unended_line)
		return;
	if (is_gpio) {
		end_line(source);
		return;
	}
	bug("interrupt %u was taken and never ended: its CPU would take no further interrupt",
	    desc->data.irq);
	end_line(source);
}

// A CPU takes the line inside the exception, with interrupts off already: whoever has
// masked a line and then waits for such regions has waited for all who took it before.
static bool try_line(line &source, u32 cpu)
{
	if (!deliverable(source.state.load(std::memory_order_relaxed)))
		return false;
	const hardirq_scope scope(cpu);
	if (!take(source, cpu))
		return false;
	run_line(source);
	return true;
}

static bool run_one_line(u32 cpu, u32 &turn)
{
	for (u32 step = 0; step < HOST_LINES; step++) {
		if (!try_line(lines[(turn + step) % HOST_LINES], cpu))
			continue;
		turn = (turn + step + 1) % HOST_LINES;
		return true;
	}
	return false;
}

static bool run_one_call(u32 cpu)
{
	hardirq_call call;

	if (queued_call_count.load(std::memory_order_relaxed) == 0)
		return false;
	{
		const std::lock_guard guard(calls_lock);

		if (queued_calls.empty())
			return false;
		call = queued_calls.front();
		queued_calls.pop_front();
		queued_call_count.fetch_sub(1, std::memory_order_relaxed);
	}
	note_activity();
	const hardirq_scope scope(cpu);
	call.function(call.argument);
	return true;
}

static void cpu_main(u32 cpu)
{
	u32 turn = cpu;

	for (;;) {
		const u32 seen = wakeups.load(std::memory_order_relaxed);

		full_barrier();
		busy_cpus.fetch_add(1, std::memory_order_acq_rel);
		while (run_one_call(cpu) || run_one_line(cpu, turn))
			;
		busy_cpus.fetch_sub(1, std::memory_order_acq_rel);
		if (stopping.load(std::memory_order_acquire))
			return;
		wakeups.wait(seen, std::memory_order_relaxed);
	}
}

// A replay runs the flow handler as a tasklet does: not a hard interrupt, not a task.
static void run_replay(u32 virq)
{
	note_activity();
	current().softirq++;
	const bool flags = irqs_save();

	if (irq_desc *desc = desc_of(virq))
		desc->handle_irq.load(std::memory_order_acquire)(desc);
	irqs_restore(flags);
	current().softirq--;
}

static void free_dead(std::vector<irq_desc *> &dead)
{
	if (dead.empty())
		return;
	wait_for_readers(&reader_slot::irqs_off, "freeing interrupt descriptors");
	for (irq_desc *desc : dead)
		delete desc;
	dead.clear();
}

static void softirq_main()
{
	std::unique_lock guard(softirq_lock);

	for (;;) {
		softirq_wakeup.wait(guard, [] {
			return softirq_stopping || !replays.empty() || !dead_descs.empty();
		});
		if (replays.empty() && dead_descs.empty())
			return;

		std::set<u32> numbers;
		std::vector<irq_desc *> dead;
		numbers.swap(replays);
		dead.swap(dead_descs);
		softirq_busy = true;
		guard.unlock();
		for (const u32 virq : numbers)
			run_replay(virq);
		free_dead(dead);
		guard.lock();
		softirq_busy = false;
	}
}

void queue_replay(u32 virq)
{
	note_activity();
	const std::lock_guard guard(softirq_lock);
	replays.insert(virq);
	softirq_wakeup.notify_one();
}

void free_after_readers(irq_desc *desc)
{
	const std::lock_guard guard(softirq_lock);
	dead_descs.push_back(desc);
	softirq_wakeup.notify_one();
}

void cpus_start()
{
	stopping = false;
	softirq_stopping = false;
	softirq = std::thread(softirq_main);
	for (u32 cpu = 0; cpu < cpu_count; cpu++)
		cpus[cpu] = std::thread(cpu_main, cpu);
}

void cpus_stop()
{
	stopping.store(true, std::memory_order_release);
	wake_cpus();
	for (std::thread &cpu : cpus)
		cpu.join();
	{
		const std::lock_guard guard(softirq_lock);
		softirq_stopping = true;
		softirq_wakeup.notify_one();
	}
	softirq.join();
}

bool cpus_idle()
{
	for (u32 index = 0; index < HOST_LINES; index++) {
		const u32 state = lines[index].state.load(std::memory_order_acquire);

		if (deliverable(state) || state & line_is_active)
			return false;
	}
	if (busy_cpus.load(std::memory_order_acquire) || queued_call_count.load())
		return false;

	const std::lock_guard guard(softirq_lock);
	return replays.empty() && dead_descs.empty() && !softirq_busy;
}

static line &line_of(const irq_data &data)
{
	return lines[data.hwirq - first_line];
}

bool line_active(const irq_data &data)
{
	return line_of(data).state.load(std::memory_order_acquire) & line_is_active;
}

static void line_mask(irq_data *data)
{
	line_of(*data).state.fetch_or(line_masked, std::memory_order_relaxed);
}

static void line_unmask(irq_data *data)
{
	line_of(*data).state.fetch_and(~line_masked, std::memory_order_release);
	wake_cpus();
}

static void line_eoi(irq_data *data)
{
	end_line(line_of(*data));
}

// Masked while it is moved, unless it was already. Who unmasks or masks it meanwhile, for
// want of the descriptor lock, has that undone.
static int line_set_affinity(irq_data *data, const cpumask *mask, bool /*force*/)
{
	constexpr int done = 2; // IRQ_SET_MASK_OK_DONE
	line &target = line_of(*data);
	const bool masked = target.state.load(std::memory_order_relaxed) & line_masked;

	if (!masked)
		line_mask(data);
	target.cpus.store(mask->bits, std::memory_order_relaxed);
	reached(moment::line_moves);
	if (!masked)
		line_unmask(data);
	data->effective = mask->bits;
	return done;
}

static int line_set_type(irq_data * /*data*/, u32 type)
{
	return type == 1 || type == 4 ? 0 : -einval; // rising edge, high level
}

static int gpio_set_type(irq_data * /*data*/, u32 type)
{
	switch (type) {
	case 1: // rising, falling, both edges
	case 2:
	case 3:
	case 4: // high, low level
	case 8:
		return 0;
	}
	return -einval;
}

static void raise(line &source)
{
	source.state.fetch_or(line_pending, std::memory_order_release);
	wake_cpus();
}

static int line_retrigger(irq_data *data)
{
	raise(line_of(*data));
	return 1;
}

irq_chip *line_chip()
{
	static constinit irq_chip chip = {
		.name = "GICv3",
		.irq_enable = nullptr,
		.irq_disable = nullptr,
		.irq_mask = line_mask,
		.irq_unmask = line_unmask,
		.irq_eoi = line_eoi,
		.irq_set_affinity = line_set_affinity,
		.irq_set_type = line_set_type,
		.irq_retrigger = line_retrigger,
		.set_type_masked = true,
		.hardirq_only = true,
		.affinity_pre_startup = false,
	};

	return &chip;
}

irq_chip *gpio_chip()
{
	static constinit irq_chip chip = {
		.name = "gpio",
		.irq_enable = nullptr,
		.irq_disable = nullptr,
		.irq_mask = line_mask,
		.irq_unmask = line_unmask,
		.irq_eoi = nullptr,
		.irq_set_affinity = nullptr,
		.irq_set_type = gpio_set_type,
		.irq_retrigger = nullptr,
		.set_type_masked = false,
		.hardirq_only = false,
		.affinity_pre_startup = false,
	};

	return &chip;
}

bool is_line(irq_desc &desc)
{
	return &desc.chip() == line_chip() || &desc.chip() == gpio_chip();
}

void lines_start()
{
	for (line &source : lines) {
		source.state = line_masked;
		source.cpus = all_cpus;
		source.desc = nullptr;
		source.hold = false;
	}
}

void line_bind(u32 line, irq_desc *desc)
{
	lines[line].desc.store(desc, std::memory_order_release);
}

bool line_used(u32 line)
{
	return lines[line].desc.load(std::memory_order_acquire) != nullptr;
}

} // namespace model

using namespace model;

void host_queue_hardirq_call(void (*call)(void *arg), void *arg)
{
	{
		const std::lock_guard guard(calls_lock);
		queued_calls.push_back({call, arg});
		queued_call_count.fetch_add(1, std::memory_order_relaxed);
	}
	wake_cpus();
}

uint32_t host_line_virq(uint32_t line)
{
	if (line >= HOST_LINES)
		return 0;
	if (const irq_desc *desc = lines[line].desc.load(std::memory_order_acquire))
		return desc->data.irq;
	return create_mapping(*root_domain(), first_line + line);
}

void host_line_set_pending(uint32_t line, int pending)
{
	irq_desc *desc =
		line < HOST_LINES ? lines[line].desc.load(std::memory_order_acquire) : nullptr;

	if (!desc)
		return;
	const raw_guard guard(desc->lock);
	if (pending)
		raise(lines[line]);
	else
		lines[line].state.fetch_and(~line_pending, std::memory_order_relaxed);
}

int host_line_pending(uint32_t line)
{
	return line < HOST_LINES && lines[line].state & line_pending;
}

int host_line_masked(uint32_t line)
{
	return line < HOST_LINES && lines[line].state & line_masked;
}

void host_line_hold(uint32_t line, int hold)
{
	if (line < HOST_LINES)
		lines[line].hold.store(hold != 0, std::memory_order_release);
}

int host_line_taken(uint32_t line)
{
	return line < HOST_LINES && lines[line].held.load(std::memory_order_acquire);
}

int host_wait_idle(uint32_t timeout_ms)
{
	const auto deadline =
		std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);

	for (;;) {
		const u64 before = activity();

		if (cpus_idle() && tasks_idle() && cpus_idle() && activity() == before)
			return 0;
		if (std::chrono::steady_clock::now() > deadline)
			return -etimedout;
		std::this_thread::sleep_for(std::chrono::microseconds(100));
	}
}
