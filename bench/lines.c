// SPDX-License-Identifier: GPL-2.0
/*
 * Parent lines and what makes the driver find them: an interrupt controller of the
 * bench's own, platform devices for the combiners of the board, and GPIO pins for
 * those of a card. Masks, acknowledges and ends cost nothing here: what is measured
 * is who demultiplexes the line, not who it hangs on.
 */
#include <linux/gpio/driver.h>
#include <linux/interrupt.h>
#include <linux/irq.h>
#include <linux/irq_work.h>
#include <linux/irqdomain.h>
#include <linux/module.h>
#include <linux/platform_device.h>
#include <linux/string.h>

#include "kernel/name_driver.h"
#include "regs.h"

#define DRIVER_NAME "irq_combiner"

static struct irq_domain *domain;
static u32 virqs[BENCH_LINES];
static struct platform_device *devices[BENCH_COMBINERS];
static bool has_pins;

u32 line_virq(u32 line)
{
	return line < BENCH_LINES ? virqs[line] : 0;
}

static void line_mask(struct irq_data *data)
{
	run_line_masked(data->hwirq, true);
}

static void line_unmask(struct irq_data *data)
{
	run_line_masked(data->hwirq, false);
}

static void line_eoi(struct irq_data *data) {}

static int line_set_type(struct irq_data *data, unsigned int type)
{
	return type == IRQ_TYPE_LEVEL_HIGH || type == IRQ_TYPE_NONE ? 0 : -EINVAL;
}

static int line_set_affinity(struct irq_data *data, const struct cpumask *mask, bool force)
{
	irq_data_update_effective_affinity(data, cpumask_of(0));
	return IRQ_SET_MASK_OK;
}

static struct irq_chip line_chip = {
	.name = "bench",
	.irq_mask = line_mask,
	.irq_unmask = line_unmask,
	.irq_eoi = line_eoi,
	.irq_set_type = line_set_type,
	.irq_set_affinity = line_set_affinity,
	.flags = IRQCHIP_SKIP_SET_WAKE | IRQCHIP_AFFINITY_PRE_STARTUP,
};

void line_reset(u32 line)
{
	irq_set_chip_and_handler(virqs[line], &line_chip, handle_fasteoi_irq);
	irq_modify_status(virqs[line], IRQ_NOREQUEST | IRQ_NOPROBE | IRQ_NOTHREAD, IRQ_LEVEL);
	irq_set_irq_type(virqs[line], IRQ_TYPE_LEVEL_HIGH);
}

static int line_map(struct irq_domain *of, unsigned int virq, irq_hw_number_t line)
{
	irq_set_chip_and_handler(virq, &line_chip, handle_fasteoi_irq);
	irq_set_status_flags(virq, IRQ_LEVEL);
	return 0;
}

static const struct irq_domain_ops domain_ops = {.map = line_map};

static void remove_device(u32 id)
{
	if (devices[id])
		platform_device_unregister(devices[id]);
	devices[id] = NULL;
}

static int add_device(u32 id)
{
	struct resource irq = DEFINE_RES_IRQ(virqs[id]);
	struct platform_device *device;
	char name[sizeof(DRIVER_NAME "@31")];
	int ret;

	snprintf(name, sizeof(name), DRIVER_NAME "@%u", id);
	device = platform_device_alloc(name, PLATFORM_DEVID_NONE);
	if (!device)
		return -ENOMEM;
	ret = name_driver(device, DRIVER_NAME);
	if (!ret)
		ret = platform_device_add_resources(device, &irq, 1);
	if (!ret)
		ret = platform_device_add(device);
	if (ret)
		platform_device_put(device);
	else
		devices[id] = device;
	return ret;
}

int devices_set(u32 count)
{
	int ret = 0;
	u32 id;

	regs_restart_slots();
	for (id = 0; id < BENCH_COMBINERS && !ret; id++) {
		remove_device(id);
		if (id < count)
			ret = add_device(id);
	}
	return ret;
}

static int pin_get(struct gpio_chip *chip, unsigned int pin)
{
	return 0;
}

static int pin_direction_input(struct gpio_chip *chip, unsigned int pin)
{
	return 0;
}

static int pin_to_irq(struct gpio_chip *chip, unsigned int pin)
{
	return line_virq(BENCH_FIRST_PIN + pin);
}

static struct gpio_chip pins = {
	.label = "bench",
	.owner = THIS_MODULE,
	.base = BENCH_GPIO_BASE,
	.ngpio = BENCH_PINS,
	.get = pin_get,
	.direction_input = pin_direction_input,
	.to_irq = pin_to_irq,
};

int lines_start(void)
{
	u32 line;
	int ret = 0;

	domain = irq_domain_add_linear(NULL, BENCH_LINES, &domain_ops, NULL);
	if (!domain)
		return -ENOMEM;
	for (line = 0; line < BENCH_LINES && !ret; line++) {
		virqs[line] = irq_create_mapping(domain, line);
		ret = virqs[line] ? irq_set_irq_type(virqs[line], IRQ_TYPE_LEVEL_HIGH) : -ENOMEM;
	}
	if (!ret)
		ret = gpiochip_add_data(&pins, NULL);
	has_pins = !ret;
	if (ret)
		lines_stop();
	return ret;
}

void lines_stop(void)
{
	u32 line;

	(void)devices_set(0);
	if (has_pins)
		gpiochip_remove(&pins);
	for (line = 0; line < BENCH_LINES; line++)
		irq_dispose_mapping(virqs[line]);
	irq_domain_remove(domain);
}
