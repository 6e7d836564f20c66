// SPDX-License-Identifier: GPL-2.0
//
// GPIO pins by their global number, and which line of the model each interrupts
// on. A pin's line has a chip of its own kind, see cpu.cpp.
#include "internal.h"

#include <map>

struct gpio_desc {
	u32 virq; // 0: no interrupt
};

namespace model {

static std::mutex pins_lock;
static std::map<u32, gpio_desc> pins;
static std::atomic<bool> lines_on_pins[HOST_LINES];

bool on_gpio(u32 line)
{
	return lines_on_pins[line].load(std::memory_order_relaxed);
}

void gpios_reset()
{
	pins.clear();
	for (auto &flag : lines_on_pins)
		flag = false;
}

} // namespace model

using namespace model;

int host_gpio_map(uint32_t gpio, uint32_t line)
{
	const std::lock_guard guard(pins_lock);

	if (pins.contains(gpio) || (line < HOST_LINES && (on_gpio(line) || line_used(line))))
		return -eexist;
	if (line < HOST_LINES)
		lines_on_pins[line] = true;
	pins[gpio] = {host_line_virq(line)};
	return 0;
}

struct gpio_desc *plat_gpio_to_desc(u32 gpio)
{
	long injected;

	if (fails(service::gpio_to_desc, injected))
		return nullptr;
	const std::lock_guard guard(pins_lock);
	const auto found = pins.find(gpio);
	return found == pins.end() ? nullptr : &found->second;
}

int plat_gpiod_direction_input(struct gpio_desc * /*gpio*/)
{
	long injected;

	return fails(service::gpiod_direction_input, injected) ? static_cast<int>(injected) : 0;
}

int plat_gpiod_to_irq(const struct gpio_desc *gpio)
{
	long injected;

	if (fails(service::gpiod_to_irq, injected))
		return static_cast<int>(injected);
	if (!gpio)
		return -einval;
	return gpio->virq ? static_cast<int>(gpio->virq) : -enxio;
}
