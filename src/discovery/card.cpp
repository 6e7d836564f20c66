// SPDX-License-Identifier: GPL-2.0
//
// The up to four combiners of a plug-in card, numbered as table/numbering.h says.
// Their parent line is a GPIO pin or a leaf of another combiner.
#include "discovery/card.h"

#include "combiner/lifecycle.h"
#include "config/keys.h"
#include "core/log.h"
#include "delivery/request.h"
#include "discovery/gpio.h"

int drv_intr_get_card_no(u32 inst_id, u32 &card_no)
{
	const u32 number = card_number(inst_id);

	if (number == NO_CARD)
		return -EINVAL;
	card_no = number;
	return 0;
}

// The parent line's virq, not above 0 when there is none.
static int find_parent(const char *desc, drv_intr_combiner &combiner, u32 card_no)
{
	switch (combiner.common_cfg.int_type) {
	case DRV_INTR_GPIO:
		intr_info("[%s]enter, gpio=%u", desc, combiner.common_cfg.gpio);
		return drv_intr_gpio_to_virq(combiner.common_cfg.gpio);
	case DRV_INTR_COMBINER:
		combiner.parent_index_id = card_no;
		combiner.parent_type = CARD_LEAF_TYPE;
		return static_cast<int>(drv_mapping_irq(card_no, CARD_LEAF_TYPE));
	}
	return 0;
}

// A leaf that was mapped for a combiner which then could not take it.
static void give_back_mapping(const drv_intr_combiner &combiner)
{
	if (combiner.common_cfg.int_type != DRV_INTR_COMBINER || combiner.parent_leaf)
		return;
	drv_intr_irq_info *leaf =
		drv_intr_get_irq_info_by_index_type(combiner.parent_index_id, combiner.parent_type);
	if (!leaf)
		return;
	const mutex_guard guard(leaf->lock);
	(void)drv_intr_free_irq(*leaf); // others that hold the leaf keep it
}

// After a failure the record stays in the list, for the caller to free.
static int drv_intr_init_one_card_combiner(drv_intr_ctrl &ctrl, u32 inst_id, const char *name,
					   u32 combiner_id, u32 card_no)
{
	static constexpr char desc[] = "intr init one card combiner";
	drv_intr_combiner *combiner = drv_intr_combiner_init_soft(ctrl, combiner_id, name, inst_id);

	if (!combiner) {
		intr_err("[%s]combiner init soft fail", desc);
		return -EFAULT;
	}
	const u32 int_type = combiner->common_cfg.int_type;
	intr_info("[%s]enter, int_type=%u(%s)", desc, int_type,
		  drv_intr_get_int_type_desc(int_type));
	const int virq = find_parent(desc, *combiner, card_no);
	if (virq <= 0) {
		intr_err("[%s]map irq fail, card_no=%u", desc, card_no);
		return -EFAULT;
	}
	combiner->card_no = card_no;
	const int ret = drv_intr_combiner_init(*combiner, nullptr, static_cast<u32>(virq));
	if (ret != 0) {
		intr_err("[%s]combiner init fail, ret=%d", desc, ret);
		give_back_mapping(*combiner);
	}
	return ret;
}

static int init_card_combiner_at(const char *desc, drv_intr_ctrl &ctrl, u32 inst_id, u32 card_no,
				 u32 index)
{
	char name[DRV_INTR_NAME_SIZE];
	const int ret = sprintf_s(name, sizeof(name), DRV_INTR_COMBINER_NAME_FORMAT, index);

	if (ret < 0) {
		intr_err("[%s]sprintf_s fail, ret=%d", desc, ret);
		return ret;
	}
	return drv_intr_init_one_card_combiner(ctrl, inst_id, name,
					       card_combiner_id(card_no, index), card_no);
}

// The first combiner of the card that exists, or null.
static drv_intr_combiner *existing_combiner(u32 card_no)
{
	for (u32 index = 0; index < CARD_COMBINERS; index++) {
		if (drv_intr_combiner *combiner =
			    drv_intr_get_combiner(card_combiner_id(card_no, index)))
			return combiner;
	}
	return nullptr;
}

int drv_intr_init_card_combiner(drv_intr_ctrl &ctrl, u32 inst_id)
{
	static constexpr char desc[] = "intr init card combiner";
	u32 card_no = 0, bitmap = 0;

	intr_info("[%s]enter, inst_id=0x%x", desc, inst_id);
	if (drv_intr_get_card_no(inst_id, card_no) != 0) {
		intr_err("[%s]invalid inst id", desc);
		return -EINVAL;
	}
	drv_intr_get_card_combiner_bitmap(inst_id, bitmap);
	intr_info("[%s]enter, bitmap=0x%x", desc, bitmap);
	if (const drv_intr_combiner *existing = existing_combiner(card_no)) {
		intr_err("[%s]combiner_id=%u, combiner already exist, card_no=%u", desc,
			 existing->combiner_id, card_no);
		return -EFAULT;
	}
	if (ctrl.stopping != 0) {
		intr_err("[%s]the driver is stopping, card_no=%u", desc, card_no);
		return -EFAULT;
	}
	for (u32 index = 0; index < CARD_COMBINERS; index++) {
		if (!(bitmap & (1u << index)))
			continue;
		if (init_card_combiner_at(desc, ctrl, inst_id, card_no, index) != 0) {
			drv_intr_free_card_combiner(card_no, bitmap);
			return -EFAULT;
		}
	}
	intr_info("[%s]success", desc);
	return 0;
}

// To be freed. A device of the board may carry such a number, too.
static drv_intr_combiner *card_combiner(u32 card_no, u32 index)
{
	drv_intr_combiner *combiner =
		drv_intr_get_combiner_to_free(card_combiner_id(card_no, index));

	return combiner && combiner->inst_id != DRV_INTR_BOARD_INST_ID ? combiner : nullptr;
}

void drv_intr_free_card_combiner(u32 card_no, u32 bitmap)
{
	for (u32 index = 0; index < CARD_COMBINERS; index++) {
		drv_intr_combiner *combiner = card_combiner(card_no, index);

		if (combiner && (bitmap & (1u << index)))
			drv_intr_combiner_unlink(*combiner);
	}
	for (u32 index = 0; index < CARD_COMBINERS; index++) {
		drv_intr_combiner *combiner = card_combiner(card_no, index);

		if (!combiner)
			continue;
		if (bitmap & (1u << index))
			drv_intr_combiner_remove(*combiner);
		else
			intr_err("combiner_id=%u stays, combiner_bitmap=0x%x does not name it",
				 combiner->combiner_id, bitmap);
	}
}
