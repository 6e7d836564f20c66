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

// The pauses, by service.
struct held_call {
	std::atomic<u32> nth{0}; // the calls to the one that waits; 0: none
	std::atomic<bool> off{true};
	std::atomic<bool> waiting{false};
};
static held_call held_calls[service_count];

static u32 find_service(const char *symbol)
{
	u32 index = 0;

	while (index < service_count && strcmp(service_names[index], symbol) != 0)
		index++;
	return index;
}

static void pause_if_wanted(held_call &here)
{
	if (here.nth.load(std::memory_order_relaxed) == 0 || here.nth.fetch_sub(1) != 1)
		return;
	here.waiting.store(true, std::memory_order_release);
	wait_until([&] { return here.off.load(std::memory_order_acquire); }, "paused call");
	here.waiting.store(false, std::memory_order_release);
}

void count_call(service which)
{
	calls[static_cast<u32>(which)].fetch_add(1, std::memory_order_relaxed);
	pause_if_wanted(held_calls[static_cast<u32>(which)]);
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

static struct {
	std::atomic<void (*)(void *)> call{nullptr};
	std::atomic<void *> arg{nullptr};
} places[HOST_PLACES];

void reached(host_place place)
{
	if (auto *call = places[place].call.load(std::memory_order_acquire))
		call(places[place].arg.load(std::memory_order_relaxed));
}

void services_reset()
{
	host_fault_off();
	for (auto &place : places)
		place.call.store(nullptr, std::memory_order_relaxed);
	for (held_call &call : held_calls) {
		call.nth = 0;
		call.off = true;
	}
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

void host_at(enum host_place place, void (*call)(void *arg), void *arg)
{
	places[place].arg.store(arg, std::memory_order_relaxed);
	places[place].call.store(call, std::memory_order_release);
}

static held_call *find_held_call(const char *symbol)
{
	const u32 index = find_service(symbol);

	if (index < service_count)
		return &held_calls[index];
	bug("host_pause: there is no function %s", symbol);
	return nullptr;
}

void host_pause(const char *symbol, uint32_t nth)
{
	if (held_call *call = find_held_call(symbol)) {
		call->off = false;
		call->nth = nth;
	}
}

int host_paused(const char *symbol)
{
	const held_call *call = find_held_call(symbol);

	return call && call->waiting.load(std::memory_order_acquire);
}

void host_pause_off(const char *symbol)
{
	if (held_call *call = find_held_call(symbol)) {
		call->nth = 0;
		call->off.store(true, std::memory_order_release);
	}
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
