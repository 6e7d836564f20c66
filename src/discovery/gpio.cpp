// SPDX-License-Identifier: GPL-2.0
//
// Combiners behind GPIO pins of the board: bit n of gpio_bitmap is combiner n,
// behind the pin that its common settings name.
#include "discovery/gpio.h"

#include "combiner/lifecycle.h"
#include "core/log.h"

int drv_intr_gpio_to_virq(u32 gpio)
{
	gpio_desc *pin = gpio_to_desc(gpio);

	(void)gpiod_direction_input(pin); // a pin that is wired as input may refuse
	return gpiod_to_irq(pin);
}

static int init_one(const char *desc, drv_intr_ctrl &ctrl, u32 combiner_id)
{
	char name[DRV_INTR_NAME_SIZE];
	int ret = sprintf_s(name, sizeof(name), DRV_INTR_COMBINER_NAME_FORMAT, combiner_id);

	if (ret < 0) {
		intr_err("sprintf_s to combiner name failed, ret=%d", ret);
		return ret;
	}
	drv_intr_combiner *combiner =
		drv_intr_combiner_init_soft(ctrl, combiner_id, name, DRV_INTR_BOARD_INST_ID);
	if (!combiner) {
		intr_err("[%s]combiner init soft fail", desc);
		return -EFAULT;
	}
	const u32 gpio = combiner->common_cfg.gpio;
	intr_info("[%s]combiner_id=%u, gpio=%u", desc, combiner_id, gpio);
	const int virq = drv_intr_gpio_to_virq(gpio);
	if (virq <= 0) {
		intr_err("[%s]gpio to virq fail, virq=%d", desc, virq);
		return -EFAULT;
	}
	ret = drv_intr_combiner_init(*combiner, nullptr, static_cast<u32>(virq));
	if (ret != 0)
		intr_err("[%s]combiner init fail, ret=%d", desc, ret);
	return ret;
}

int drv_intr_init_gpio_combiner(drv_intr_ctrl &ctrl)
{
	static constexpr char desc[] = "intr init gpio combiner";
	const u32 bitmap = ctrl.global_cfg.gpio_bitmap;

	intr_info("[%s]enter, gpio_bitmap=0x%x", desc, bitmap);
	for (u32 id = 0; id < BOARD_COMBINERS; id++) {
		if (!(bitmap & (1u << id)))
			continue;
		if (init_one(desc, ctrl, id) != 0) {
			drv_intr_free_combiner_by_bitmap(bitmap);
			return -EFAULT;
		}
	}
	intr_info("[%s]success", desc);
	return 0;
}
