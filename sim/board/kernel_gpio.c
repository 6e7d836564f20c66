// SPDX-License-Identifier: GPL-2.0
/*
 * The board's GPIO controller: eight input pins whose level is that of their
 * CPLD output, with an interrupt each.
 *
 * A pin's pending mark is a latch: delivered once when the pin is not masked,
 * and forgotten then. Marks are set in the middle of register accesses and of
 * chip operations, where locks of the interrupt core are held; delivery is
 * therefore a piece of work of its own, in hard-interrupt context.
 *
 * The controller delivers one interrupt at a time, as a real one does behind
 * its one line to the CPU: without end-of-interrupt operation nothing else
 * would keep a second CPU out of a handler that runs.
 */
#include "kernel_gpio.h"

#include <linux/bitops.h>
#include <linux/gpio/driver.h>
#include <linux/irq.h>
#include <linux/irq_work.h>
#include <linux/irqdomain.h>
#include <linux/module.h>

#include "cpld/cpld_sim.h"

static struct fwnode_handle *node;
static struct irq_domain *domain;
/* Mapped from start to stop, and constant in between. */
static u32 virqs[BOARD_GPIOS];

/* Held under descriptor locks; nothing is called under it but the queueing of the work. */
PORT_LOCK(state_lock);
static unsigned long pending;
static unsigned long unmasked;
static bool delivering;

static struct irq_work delivery;

/* Called with state_lock held. */
static void deliver_soon(void)
{
	if ((pending & unmasked) && !delivering)
		irq_work_queue(&delivery);
}

/* Takes the marks to deliver; 0 while another CPU delivers. */
static unsigned long begin_delivery(void)
{
	unsigned long flags = port_lock(&state_lock);
	unsigned long lines = delivering ? 0 : pending & unmasked;

	delivering |= lines != 0;
	port_unlock(&state_lock, flags);
	return lines;
}

/* Takes the mark of a line that is unmasked and not withdrawn; others stay. */
static bool take(u32 line)
{
	unsigned long flags = port_lock(&state_lock);
	bool due = pending & unmasked & BIT(line);

	if (due)
		pending &= ~BIT(line);
	port_unlock(&state_lock, flags);
	return due;
}

static void end_delivery(void)
{
	unsigned long flags = port_lock(&state_lock);

	delivering = false;
	deliver_soon();
	port_unlock(&state_lock, flags);
}

static void deliver(struct irq_work *work)
{
	unsigned long lines = begin_delivery();
	unsigned int line;

	if (!lines)
		return;
	for_each_set_bit(line, &lines, BOARD_GPIOS)
		if (take(line))
			generic_handle_irq_safe(virqs[line]);
	end_delivery();
}

void board_gpio_set_pending(u32 line, bool is_pending)
{
	unsigned long flags = port_lock(&state_lock);

	if (is_pending)
		pending |= BIT(line);
	else
		pending &= ~BIT(line);
	deliver_soon();
	port_unlock(&state_lock, flags);
}

u32 board_gpio_virq(u32 line)
{
	return virqs[line];
}

/* Interrupts. */

static void gpio_mask(struct irq_data *data)
{
	unsigned long flags = port_lock(&state_lock);

	unmasked &= ~BIT(data->hwirq);
	port_unlock(&state_lock, flags);
}

static void gpio_unmask(struct irq_data *data)
{
	unsigned long flags = port_lock(&state_lock);

	unmasked |= BIT(data->hwirq);
	deliver_soon();
	port_unlock(&state_lock, flags);
}

/* The mark is set from the board's model, so the trigger is only looked at. */
static int gpio_set_type(struct irq_data *data, unsigned int type)
{
	switch (type) {
	case IRQ_TYPE_EDGE_RISING:
	case IRQ_TYPE_EDGE_FALLING:
	case IRQ_TYPE_EDGE_BOTH:
	case IRQ_TYPE_LEVEL_HIGH:
	case IRQ_TYPE_LEVEL_LOW:
		return 0;
	}
	return -EINVAL;
}

static struct irq_chip gpio_irq_chip = {
	.name = "board-gpio",
	.irq_mask = gpio_mask,
	.irq_unmask = gpio_unmask,
	.irq_set_type = gpio_set_type,
};

static int gpio_map(struct irq_domain *of, unsigned int virq, irq_hw_number_t hwirq)
{
	irq_set_chip_and_handler(virq, &gpio_irq_chip, handle_level_irq);
	return 0;
}

static const struct irq_domain_ops domain_ops = { .map = gpio_map };

static void unmap_lines(void)
{
	u32 line;

	for (line = 0; line < BOARD_GPIOS; line++) {
		irq_dispose_mapping(virqs[line]);
		virqs[line] = 0;
	}
}

static int map_lines(void)
{
	u32 line;

	for (line = 0; line < BOARD_GPIOS; line++) {
		virqs[line] = irq_create_mapping(domain, line);
		if (!virqs[line]) {
			unmap_lines();
			return -ENOMEM;
		}
	}
	return 0;
}

static void remove_domain(void)
{
	irq_domain_remove(domain);
	irq_domain_free_fwnode(node);
}

static int make_domain(void)
{
	node = irq_domain_alloc_named_fwnode("board-gpio");
	if (!node)
		return -ENOMEM;
	domain = irq_domain_create_linear(node, BOARD_GPIOS, &domain_ops, NULL);
	if (!domain) {
		irq_domain_free_fwnode(node);
		return -ENOMEM;
	}
	return 0;
}

/* Pins. */

static int gpio_direction(struct gpio_chip *chip, unsigned int line)
{
	return GPIO_LINE_DIRECTION_IN;
}

static int gpio_direction_input(struct gpio_chip *chip, unsigned int line)
{
	return 0;
}

static int gpio_get(struct gpio_chip *chip, unsigned int line)
{
	return cpld_sim_line_level(BOARD_GPIO_LINE + line);
}

/* Whoever asks for a pin that nobody has gets it as after boot: without a trigger. */
static void forget_trigger(u32 virq)
{
	if (irq_has_action(virq))
		return;
	irq_modify_status(virq, IRQ_TYPE_SENSE_MASK | IRQ_LEVEL, 0);
	irqd_set_trigger_type(irq_get_irq_data(virq), IRQ_TYPE_NONE);
}

static int gpio_to_virq(struct gpio_chip *chip, unsigned int line)
{
	forget_trigger(virqs[line]);
	return (int)virqs[line];
}

static struct gpio_chip gpio_chip = {
	.label = "board-gpio",
	.owner = THIS_MODULE,
	.base = BOARD_GPIO_BASE,
	.ngpio = BOARD_GPIOS,
	.get_direction = gpio_direction,
	.direction_input = gpio_direction_input,
	.get = gpio_get,
	.to_irq = gpio_to_virq,
};

static int map_and_add(void)
{
	int ret = map_lines();

	if (ret)
		return ret;
	ret = gpiochip_add_data(&gpio_chip, NULL);
	if (ret)
		unmap_lines();
	return ret;
}

int board_gpio_start(void)
{
	int ret;

	pending = 0;
	unmasked = 0;
	delivery = IRQ_WORK_INIT_HARD(deliver);
	ret = make_domain();
	if (ret)
		return ret;
	ret = map_and_add();
	if (ret)
		remove_domain();
	return ret;
}

/* Every line is masked for good before the virqs go, so that no delivery follows the wait. */
static void mask_all(void)
{
	unsigned long flags = port_lock(&state_lock);

	unmasked = 0;
	port_unlock(&state_lock, flags);
	irq_work_sync(&delivery);
}

void board_gpio_stop(void)
{
	gpiochip_remove(&gpio_chip);
	mask_all();
	unmap_lines();
	remove_domain();
}
