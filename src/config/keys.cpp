// SPDX-License-Identifier: GPL-2.0
//
// The key-table reader, the global configuration and a combiner's common
// settings.
#include "config/keys.h"

#include "core/log.h"

static void store_default(const drv_intr_cfg_map_item &item)
{
	if (item.default_str)
		*item.dest = static_cast<u32>(simple_strtoul(item.default_str, nullptr, 0));
	else
		*item.dest = *item.default_ref;
}

int drv_intr_get_cfg_by_map(u32 inst_id, const drv_intr_xml_path &path, u32 count,
			    const drv_intr_cfg_map_item *items)
{
	for (u32 i = 0; i < count; i++) {
		const drv_intr_cfg_map_item &item = items[i];

		if (xml_get_element_value_u32(inst_id, path.name1, path.name2, path.name3, item.key,
					      item.dest) == 0)
			continue;
		if (item.must_exist)
			return -EINVAL;
		store_default(item);
	}
	return 0;
}

static constexpr drv_intr_xml_path global_path = {DRV_INTR_XML_ROOT, DRV_INTR_XML_GLOBAL_CFG,
						  DRV_INTR_XML_COMMON};

int drv_intr_get_cfg()
{
	static constexpr char desc[] = "intr get cfg";
	drv_intr_global_cfg &cfg = drv_intr_get_ctrl()->global_cfg;
	const drv_intr_cfg_map_item items[] = {
		drv_intr_cfg_item(config::common::cfg_type_bitmap, &cfg.cfg_type_bitmap),
		drv_intr_cfg_item(config::common::acpi_bitmap, &cfg.acpi_bitmap),
		drv_intr_cfg_item(config::common::gpio_bitmap, &cfg.gpio_bitmap),
		drv_intr_cfg_item(config::common::netlink_id, &cfg.netlink_id),
	};
	const int ret = drv_intr_get_cfg_by_map(DRV_INTR_BOARD_INST_ID, global_path,
						array_size(items), items);

	if (ret != 0) {
		intr_err("[%s]get cfg from xml fail", desc);
		return ret;
	}
	intr_info("[%s]cfg_type_bitmap=0x%x", desc, cfg.cfg_type_bitmap);
	intr_info("[%s]acpi_bitmap=0x%x", desc, cfg.acpi_bitmap);
	intr_info("[%s]gpio_bitmap=0x%x", desc, cfg.gpio_bitmap);
	intr_info("[%s]netlink_id=%u", desc, cfg.netlink_id);
	return 0;
}

void drv_intr_get_card_combiner_bitmap(u32 inst_id, u32 &bitmap)
{
	const drv_intr_cfg_map_item item =
		drv_intr_cfg_item(config::common::combiner_bitmap, &bitmap);

	(void)drv_intr_get_cfg_by_map(inst_id, global_path, 1, &item); // it has a default
}

template <u32 count> static const char *word_of(const config::value_word (&words)[count], u32 value)
{
	for (const config::value_word &row : words) {
		if (row.value == value)
			return row.word;
	}
	return "unknown";
}

const char *drv_intr_get_int_type_desc(u32 int_type)
{
	return word_of(config::int_type_words, int_type);
}

const char *drv_intr_get_irq_type_desc(u32 irq_type)
{
	return word_of(config::irq_type_words, irq_type);
}

int drv_intr_get_xml_common_cfg(const char *cfg_name, u32 inst_id, drv_intr_common_cfg *common)
{
	const drv_intr_xml_path path = {DRV_INTR_XML_ROOT, cfg_name, DRV_INTR_XML_GLOBAL_CFG};
	const drv_intr_cfg_map_item items[] = {
		drv_intr_cfg_item(config::combiner::chip_id, &common->chip_id),
		drv_intr_cfg_item(config::combiner::allow_max, &common->allow_max),
		drv_intr_cfg_item(config::combiner::suppress_ms, &common->suppress_ms),
		drv_intr_cfg_item(config::combiner::policy, &common->policy),
		drv_intr_cfg_item(config::combiner::direct, &common->direct),
		drv_intr_cfg_item(config::combiner::gpio, &common->gpio),
		drv_intr_cfg_item(config::combiner::irq_type, &common->irq_type),
		drv_intr_cfg_item(config::combiner::int_type, &common->int_type),
		drv_intr_cfg_item(config::combiner::async, &common->async),
	};

	return drv_intr_get_cfg_by_map(inst_id, path, array_size(items), items);
}
