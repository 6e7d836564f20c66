// SPDX-License-Identifier: GPL-2.0
//
// Call counters, fault injection, and places where a test steps in. Plain counters on purpose: a
// lock here would order every two threads that call the kernel.
#include "internal.h"

#include <cstring>

namespace model {

static constexpr const char *service_names[] = {
#define FALLIBLE(name) "plat_" #name,
#define INFALLIBLE(name) "plat_" #name,
#include "services.inc"
#undef FALLIBLE
#undef INFALLIBLE
};

static constexpr u32 fallible_count = 0
#define FALLIBLE(name) +1
#define INFALLIBLE(name)
#include "services.inc"
#undef FALLIBLE
#undef INFALLIBLE
	;

static constexpr u32 service_count = static_cast<u32>(service::count);
static_assert(sizeof(service_names) / sizeof(service_names[0]) == service_count);

static std::atomic<unsigned long> calls[service_count];

// The active fault. fault_service is stored last and read first.
static std::atomic<u32> fault_service{service_count};
static std::atomic<u32> fault_nth{0};
static std::atomic<long> fault_ret{0};
static std::atomic<u32> fault_calls{0};
static std::atomic<bool> fault_hit{false};

static u32 find_service(const char *symbol)
{
	u32 index = 0;

	while (index < service_count && strcmp(service_names[index], symbol) != 0)
		index++;
	return index;
}

// Where tests step in: the calls, then the named moments.
static constexpr const char *moment_names[] = {"line_moves", "depth_seen", "irq_enabled"};
static constexpr u32 moment_count = static_cast<u32>(moment::count);
static_assert(sizeof(moment_names) / sizeof(moment_names[0]) == moment_count);
static constexpr u32 step_count = service_count + moment_count;

static struct {
	std::atomic<void (*)(void *)> call{nullptr};
	std::atomic<void *> arg{nullptr};
} steps[step_count];

static void step_in(u32 index)
{
	if (auto *call = steps[index].call.load(std::memory_order_acquire))
		call(steps[index].arg.load(std::memory_order_relaxed));
}

void reached(moment here)
{
	step_in(service_count + static_cast<u32>(here));
}

static u32 find_step(const char *name)
{
	u32 index = find_service(name);

	while (index >= service_count && index < step_count &&
	       strcmp(moment_names[index - service_count], name) != 0)
		index++;
	return index;
}

void count_call(service which)
{
	calls[static_cast<u32>(which)].fetch_add(1, std::memory_order_relaxed);
	step_in(static_cast<u32>(which));
}

bool fails(service which, long &ret)
{
	count_call(which);
	if (fault_service.load(std::memory_order_relaxed) != static_cast<u32>(which))
		return false;
	if (fault_calls.fetch_add(1, std::memory_order_relaxed) + 1 !=
	    fault_nth.load(std::memory_order_relaxed))
		return false;
	ret = fault_ret.load(std::memory_order_relaxed);
	fault_hit.store(true, std::memory_order_relaxed);
	return true;
}

void services_reset()
{
	host_fault_off();
	for (auto &step : steps)
		step.call.store(nullptr, std::memory_order_relaxed);
	for (auto &counter : calls)
		counter.store(0, std::memory_order_relaxed);
}

} // namespace model

using namespace model;

int host_fault(const char *symbol, uint32_t nth, long ret)
{
	const u32 index = find_service(symbol);

	if (index >= fallible_count)
		return -einval;

	host_fault_off();
	fault_nth = nth;
	fault_ret = ret;
	fault_calls = 0;
	fault_hit = false;
	fault_service = index;
	return 0;
}

void host_fault_off(void)
{
	fault_service = service_count;
	fault_calls = 0;
	fault_hit = false;
}

void host_fault_count(uint32_t *seen, int *hit)
{
	if (seen)
		*seen = fault_calls;
	if (hit)
		*hit = fault_hit;
}

void host_at(const char *place, void (*call)(void *arg), void *arg)
{
	const u32 index = find_step(place);

	if (index == step_count) {
		bug("host_at: there is no place %s", place);
		return;
	}
	steps[index].arg.store(arg, std::memory_order_relaxed);
	steps[index].call.store(call, std::memory_order_release);
}

unsigned long host_calls(const char *symbol)
{
	const u32 index = find_service(symbol);

	if (index == service_count) {
		bug("host_calls: there is no function %s", symbol);
		return 0;
	}
	return calls[index].load(std::memory_order_relaxed);
}
