// SPDX-License-Identifier: GPL-2.0
/* GPIO lines. The kernel takes null descriptors: the direction gives 0, the interrupt -22. */
#include <linux/gpio.h>
#include <linux/gpio/consumer.h>

#include "platform/kernel_api.h"

noinline struct gpio_desc *plat_gpio_to_desc(u32 gpio)
{
	return gpio_to_desc(gpio);
}

noinline int plat_gpiod_direction_input(struct gpio_desc *gpio)
{
	return gpiod_direction_input(gpio);
}

noinline int plat_gpiod_to_irq(const struct gpio_desc *gpio)
{
	return gpiod_to_irq(gpio);
}
