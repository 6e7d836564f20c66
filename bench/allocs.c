// SPDX-License-Identifier: GPL-2.0
/* Counts what the kernel's allocator hands out, as it rounds, and takes back. */
#include <linux/err.h>
#include <linux/sched.h>
#include <linux/slab.h>
#include <trace/events/kmem.h>

#include "regs.h"

static const struct task_struct *only; /* null: everybody's */
static u64 count;
static s64 bytes;

static void add(const void *object, bool made)
{
	if ((only && current != only) || ZERO_OR_NULL_PTR(object))
		return;
	count += made;
	bytes += made ? (s64)ksize(object) : -(s64)ksize(object);
}

static void on_kmalloc(void *data, unsigned long site, const void *object, size_t requested,
		       size_t size, gfp_t flags, int node)
{
	add(object, true);
}

static void on_cache_alloc(void *data, unsigned long site, const void *object,
			   struct kmem_cache *cache, gfp_t flags, int node)
{
	add(object, true);
}

static void on_kfree(void *data, unsigned long site, const void *object)
{
	add(object, false);
}

static void on_cache_free(void *data, unsigned long site, const void *object,
			  const struct kmem_cache *cache)
{
	add(object, false);
}

static void unregister(void)
{
	unregister_trace_kmalloc(on_kmalloc, NULL);
	unregister_trace_kmem_cache_alloc(on_cache_alloc, NULL);
	unregister_trace_kfree(on_kfree, NULL);
	unregister_trace_kmem_cache_free(on_cache_free, NULL);
	tracepoint_synchronize_unregister();
}

int allocs_start(bool all)
{
	int ret;

	ret = register_trace_kmalloc(on_kmalloc, NULL);
	ret = ret ? ret : register_trace_kmem_cache_alloc(on_cache_alloc, NULL);
	ret = ret ? ret : register_trace_kfree(on_kfree, NULL);
	ret = ret ? ret : register_trace_kmem_cache_free(on_cache_free, NULL);
	if (ret)
		unregister();
	only = all ? NULL : current;
	count = 0;
	bytes = 0;
	return ret;
}

void allocs_stop(struct bench_para *para)
{
	para->allocations = count;
	para->bytes = bytes;
	unregister();
}
