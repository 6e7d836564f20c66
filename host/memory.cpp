// SPDX-License-Identifier: GPL-2.0
//
// Memory and CPU registers. An object lies in the C heap, so that the address
// checker sees overruns and use after free; a register mapping is memory that
// nothing may touch but readl and writel.
#include "internal.h"

#include <cstdlib>
#include <set>
#include <sys/mman.h>
#include <vector>

namespace model {

constexpr size_t largest_object = 4u << 20; // of kmalloc
constexpr size_t page_size = 4096;

struct mapping {
	u64 physical;
	size_t size;
};

static object_set objects;
static std::mutex registers_lock;
static std::map<const char *, mapping> mappings; // by first address
static std::map<u64, u32> registers;
static std::set<u64> failing;
static std::vector<host_mmio_access> accesses;

object_set::shard &object_set::shard_of(const void *object)
{
	return shards_[reinterpret_cast<uintptr_t>(object) / 64 % std::size(shards_)];
}

void object_set::add(const void *object, size_t size)
{
	shard &part = shard_of(object);
	const std::lock_guard guard(part.lock);

	part.objects[object] = size;
}

bool object_set::remove(const void *object, size_t *size)
{
	shard &part = shard_of(object);
	const std::lock_guard guard(part.lock);
	const auto found = part.objects.find(object);

	if (found == part.objects.end())
		return false;
	if (size)
		*size = found->second;
	part.objects.erase(found);
	return true;
}

bool object_set::has(const void *object)
{
	shard &part = shard_of(object);
	const std::lock_guard guard(part.lock);

	return part.objects.contains(object);
}

u32 object_set::list(const char *what, std::string &text)
{
	size_t count = 0;

	for (shard &part : shards_) {
		const std::lock_guard guard(part.lock);

		count += part.objects.size();
		for (const auto &[object, size] : part.objects)
			text += std::string(" ") + what + " of " + std::to_string(size) + " bytes";
	}
	return static_cast<u32>(count);
}

void object_set::clear()
{
	for (shard &part : shards_)
		part.objects.clear();
}

static size_t pages(size_t size)
{
	return (size + page_size - 1) / page_size * page_size;
}

// Under registers_lock. False: not an address to be read or written.
static bool physical_of(const void *address, const char *what, u64 &physical)
{
	const auto *at = static_cast<const char *>(address);
	auto found = mappings.upper_bound(at);

	if (found != mappings.begin()) {
		--found;
		const auto offset = static_cast<size_t>(at - found->first);

		physical = found->second.physical + offset;
		if (offset + sizeof(u32) <= found->second.size && physical % sizeof(u32) == 0)
			return true;
	}
	bug("%s: %p is not an aligned word of a register mapping", what, address);
	return false;
}

u32 memory_left(std::string &text)
{
	const u32 left = objects.list("memory", text);
	const std::lock_guard guard(registers_lock);
	for (const auto &[base, mapped] : mappings)
		text += " register mapping of " + std::to_string(mapped.size) + " bytes";
	return static_cast<u32>(left + mappings.size());
}

void memory_reset()
{
	objects.clear(); // not freed: the leak checker names who allocated it
	for (const auto &[base, mapped] : mappings)
		munmap(const_cast<char *>(base), pages(mapped.size));
	mappings.clear();
	registers.clear();
	failing.clear();
	accesses.clear();
}

} // namespace model

using namespace model;

void *plat_kzalloc(size_t size)
{
	long injected;

	if (fails(service::kzalloc, injected) || !might_sleep("kzalloc"))
		return nullptr;
	if (size > largest_object) {
		kernel_log("kzalloc of %zu bytes refused", size);
		return nullptr;
	}
	void *object = calloc(1, size);
	objects.add(object, size);
	return object;
}

void plat_kfree(const void *object)
{
	count_call(service::kfree);
	if (!object)
		return;
	size_t size;
	if (!objects.remove(object, &size)) {
		bug("kfree: %p is no object", object);
		return;
	}
	check_locks_freed(object, size);
	free(const_cast<void *>(object));
}

void *plat_ioremap(u64 physical, size_t size)
{
	long injected;

	if (fails(service::ioremap, injected) || !might_sleep("ioremap") || !size)
		return nullptr;

	const std::lock_guard guard(registers_lock);
	const auto fault = failing.lower_bound(physical);
	if (fault != failing.end() && *fault < physical + size)
		return nullptr;
	// In its page the mapping begins where the physical address does.
	void *base = mmap(nullptr, pages(size), PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
	if (base == MAP_FAILED)
		return nullptr;
	mappings[static_cast<char *>(base)] = {physical, size};
	return base;
}

void plat_iounmap(void *base)
{
	count_call(service::iounmap);
	const std::lock_guard guard(registers_lock);
	const auto found = mappings.find(static_cast<char *>(base));

	if (found == mappings.end()) {
		bug("iounmap: %p is no register mapping", base);
		return;
	}
	munmap(base, pages(found->second.size));
	mappings.erase(found);
}

u32 plat_readl(const void *address)
{
	count_call(service::readl);
	const std::lock_guard guard(registers_lock);
	u64 physical;

	if (!physical_of(address, "readl", physical))
		return ~0u;
	const u32 value = registers[physical];
	accesses.push_back({0, value, physical});
	return value;
}

void plat_writel(u32 value, void *address)
{
	count_call(service::writel);
	const std::lock_guard guard(registers_lock);
	u64 physical;

	if (!physical_of(address, "writel", physical))
		return;
	registers[physical] = value;
	accesses.push_back({1, value, physical});
}

void host_mmio_set(unsigned long long physical, uint32_t value)
{
	const std::lock_guard guard(registers_lock);
	registers[physical] = value;
}

uint32_t host_mmio_get(unsigned long long physical)
{
	const std::lock_guard guard(registers_lock);
	return registers[physical];
}

void host_mmio_fail(unsigned long long physical, int fail)
{
	const std::lock_guard guard(registers_lock);
	if (fail)
		failing.insert(physical);
	else
		failing.erase(physical);
}

size_t host_mmio_log(struct host_mmio_access *log, size_t max)
{
	const std::lock_guard guard(registers_lock);

	for (size_t index = 0; index < max && index < accesses.size(); index++)
		log[index] = accesses[index];
	return accesses.size();
}

// The kernel's own: no blanks, no sign; base 0 takes it from a leading 0 or 0x.
unsigned long plat_simple_strtoul(const char *text, char **end, u32 base)
{
	count_call(service::simple_strtoul);
	const bool hex = text[0] == '0' && (text[1] | 0x20) == 'x';
	unsigned long value = 0;

	if (!base)
		base = hex ? 16 : text[0] == '0' ? 8 : 10;
	if (base == 16 && hex)
		text += 2;
	for (;; text++) {
		const char lower = static_cast<char>(*text | 0x20);
		u32 digit;

		if (*text >= '0' && *text <= '9')
			digit = static_cast<u32>(*text - '0');
		else if (lower >= 'a' && lower <= 'f')
			digit = static_cast<u32>(lower - 'a' + 10);
		else
			break;
		if (digit >= base)
			break;
		value = value * base + digit;
	}
	if (end)
		*end = const_cast<char *>(text);
	return value;
}
