// SPDX-License-Identifier: GPL-2.0
/* Memory, registers, text and names. */
#include <linux/io.h>
#include <linux/kernel.h>
#include <linux/module.h>
#include <linux/printk.h>
#include <linux/slab.h>

#include "platform/kernel_api.h"

/* A report's buffer need not be contiguous: on a fragmented machine it could not be had. */
noinline void *plat_kzalloc(size_t size)
{
	return kvzalloc(size, GFP_KERNEL);
}

noinline void plat_kfree(const void *object)
{
	kvfree(object);
}

noinline void plat_printk(const char *text)
{
	printk("%s", text);
}

noinline void *plat_ioremap(u64 physical, size_t size)
{
	return (void __force *)ioremap(physical, size);
}

noinline void plat_iounmap(void *base)
{
	iounmap((void __iomem *)base);
}

noinline u32 plat_readl(const void *address)
{
	return readl((const void __iomem *)address);
}

noinline void plat_writel(u32 value, void *address)
{
	writel(value, (void __iomem *)address);
}

noinline unsigned long plat_simple_strtoul(const char *text, char **end, u32 base)
{
	return simple_strtoul(text, end, base);
}

noinline void *plat_symbol_get(const char *name)
{
	return __symbol_get(name);
}

noinline void plat_symbol_put(const char *name)
{
	__symbol_put(name);
}
