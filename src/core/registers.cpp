// SPDX-License-Identifier: GPL-2.0
//
// CPU-side register access.
#include "core/registers.h"

#include "platform/kernel.h"

static constexpr size_t REG_WINDOW = 16;

int irq_combiner_reg32_read(u32 address, u32 *value)
{
	void *base = ioremap(address, REG_WINDOW);

	if (!base) {
		printk("irq_combiner_reg32_read ioremap error!!\r\n");
		return -1;
	}
	*value = readl(base);
	iounmap(base);
	return 0;
}

int irq_combiner_reg32_write(u32 address, u32 value)
{
	void *base = ioremap(address, REG_WINDOW);

	if (!base) {
		printk("irq_combiner_reg32_write ioremap error!!\r\n");
		return -1;
	}
	writel(value, base);
	iounmap(base);
	return 0;
}

int drv_intr_cpu_reg_conf(u32 reg_addr, u32 shift, u32 mask, u32 value)
{
	u32 word = 0;
	const int ret = irq_combiner_reg32_read(reg_addr, &word);

	if (ret != 0)
		return ret;
	word = (word & ~drv_intr_shift_mask(mask, shift)) |
	       drv_intr_shift_mask(mask & value, shift);
	return irq_combiner_reg32_write(reg_addr, word);
}
