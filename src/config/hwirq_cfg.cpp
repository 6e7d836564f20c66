// SPDX-License-Identifier: GPL-2.0
//
// Leaf interrupts: a combiner's own entries, then those of the backplane slot.
#include "config/combiner_cfg.h"
#include "core/log.h"

// Longest key: "l4_chip_id".
static constexpr size_t LEVEL_KEY_SIZE = 20;

// In the order of the rows below.
static constexpr const config::key *level_keys[] = {
	&config::level::chip_id, &config::level::en,   &config::level::status,
	&config::level::shift,	 &config::level::mask, &config::level::wc,
};
static constexpr u32 LEVEL_KEYS = array_size(level_keys);

// The keys of the outermost levels, "l0_chip_id" and so on, as far as a leaf of the list
// that is read has needed them: to format them costs more than to read the level.
struct level_names {
	u32 levels = 0;
	char text[config::MAX_LEVELS][LEVEL_KEYS][LEVEL_KEY_SIZE];
};

static int drv_intr_get_level_item_name(char (&names)[LEVEL_KEYS][LEVEL_KEY_SIZE], u32 level)
{
	for (u32 i = 0; i < LEVEL_KEYS; i++) {
		if (sprintf_s(names[i], LEVEL_KEY_SIZE, "l%u_%s", level, level_keys[i]->name) < 0)
			return DRV_INTR_ERR_NAME_FMT;
	}
	return 0;
}

static int drv_intr_get_xml_hwirq_reg_cfg(u32 inst_id, const drv_intr_xml_path &path, u32 chip_id,
					  drv_intr_hwirq_cfg &leaf, level_names &names)
{
	static constexpr char desc[] = "intr get xml hwirq reg cfg";

	for (u32 n = 0; n < leaf.level_num; n++) {
		const auto &name = names.text[n];
		drv_intr_level_cfg &level = leaf.level[n];
		const drv_intr_cfg_map_item items[LEVEL_KEYS] = {
			{0, name[0], &level.chip_id, nullptr, &chip_id},
			drv_intr_cfg_item(config::level::en, &level.en_reg, name[1]),
			drv_intr_cfg_item(config::level::status, &level.status_reg, name[2]),
			drv_intr_cfg_item(config::level::shift, &level.shift, name[3]),
			drv_intr_cfg_item(config::level::mask, &level.mask, name[4]),
			drv_intr_cfg_item(config::level::wc, &level.status_wc, name[5]),
		};

		if (n == names.levels) {
			const int ret = drv_intr_get_level_item_name(names.text[n], n);

			if (ret != 0)
				return ret;
			names.levels++;
		}
		const int ret = drv_intr_get_cfg_by_map(inst_id, path, LEVEL_KEYS, items);
		if (ret != 0) {
			intr_err("[%s]get reg cfg by map fail", desc);
			return ret;
		}
	}
	return 0;
}

static int read_leaf_keys(u32 inst_id, const drv_intr_xml_path &path, drv_intr_hwirq_cfg &leaf)
{
	const drv_intr_cfg_map_item items[] = {
		drv_intr_cfg_item(config::leaf::index_id, &leaf.index_id),
		drv_intr_cfg_item(config::leaf::type, &leaf.type),
		drv_intr_cfg_item(config::leaf::hwirq, &leaf.hwirq),
		drv_intr_cfg_item(config::leaf::irq_type, &leaf.irq_type),
		drv_intr_cfg_item(config::leaf::allow_max, &leaf.allow_max),
		drv_intr_cfg_item(config::leaf::suppress_ms, &leaf.suppress_ms),
		drv_intr_cfg_item(config::leaf::policy, &leaf.policy),
		drv_intr_cfg_item(config::leaf::level_num, &leaf.level_num),
		drv_intr_cfg_item(config::leaf::sync, &leaf.sync),
	};

	return drv_intr_get_cfg_by_map(inst_id, path, array_size(items), items);
}

static int drv_intr_get_xml_one_hwirq_cfg(u32 inst_id, const drv_intr_xml_path &path, u32 chip_id,
					  level_names &names, list<drv_intr_hwirq_cfg> &hwirq_list)
{
	static constexpr char desc[] = "intr get xml one hwirq cfg";
	drv_intr_hwirq_cfg scratch{};

	if (read_leaf_keys(inst_id, path, scratch) != 0) {
		intr_err("[%s]get hwirq cfg fail", desc);
		return -EINVAL;
	}
	if (scratch.level_num > config::MAX_LEVELS) {
		intr_err("[%s]too many levels, index_id=0x%x, type=%u, level_num=%u", desc,
			 scratch.index_id, scratch.type, scratch.level_num);
		return -EINVAL;
	}
	if (drv_intr_get_xml_hwirq_reg_cfg(inst_id, path, chip_id, scratch, names) != 0) {
		intr_err("[%s]get reg cfg fail", desc);
		return -EINVAL;
	}
	auto *leaf = kzalloc<drv_intr_hwirq_cfg>();
	if (!leaf)
		return -ENOMEM;
	*leaf = scratch;
	hwirq_list.append(*leaf);
	return 0;
}

static bool entry_exists(u32 inst_id, const drv_intr_xml_path &path)
{
	u32 exists = 0;

	return xml_is_entry_exist(inst_id, path.name1, path.name2, path.name3, &exists) == 0 &&
	       exists != 0;
}

int drv_intr_get_xml_hwirq_cfg(const char *cfg_name, u32 inst_id, u32 chip_id,
			       list<drv_intr_hwirq_cfg> &hwirq_list)
{
	char entry[DRV_INTR_XML_NAME_SIZE];
	const drv_intr_xml_path path = {DRV_INTR_XML_ROOT, cfg_name, entry};
	level_names names;

	for (u32 i = 0; i < config::MAX_LEAF_ENTRIES; i++) {
		if (sprintf_s(entry, sizeof(entry), "hwirq_cfg%u", i) < 0)
			return DRV_INTR_ERR_NAME_FMT;
		if (!entry_exists(inst_id, path))
			return 0;
		const int ret =
			drv_intr_get_xml_one_hwirq_cfg(inst_id, path, chip_id, names, hwirq_list);
		if (ret != 0)
			return ret;
	}
	return 0;
}

// The backplane module is optional and may come and go, hence looked up each time.
static int drv_intr_get_backplane_type(u32 *type)
{
	static constexpr char name[] = "drv_backplane_get_type";
	auto *get_type = reinterpret_cast<decltype(&drv_backplane_get_type)>(symbol_get(name));

	if (!get_type)
		return -EFAULT;
	const int ret = get_type(type);
	symbol_put(name);
	return ret == 0 ? 0 : -EFAULT;
}

static bool drv_intr_slot_hwirq_cfg_is_mactch(u32 inst_id, u32 combiner_id,
					      const drv_intr_xml_path &path)
{
	u32 owner = 0;

	if (xml_get_element_value_u32(inst_id, path.name1, path.name2, path.name3,
				      config::leaf::combiner_id.name, &owner) != 0)
		return false;
	return owner == combiner_id;
}

int drv_intr_get_xml_slot_hwirq_cfg(u32 inst_id, u32 chip_id, u32 combiner_id,
				    list<drv_intr_hwirq_cfg> &hwirq_list)
{
	static constexpr char desc[] = "intr get xml slot hwirq cfg";
	char node[DRV_INTR_XML_NAME_SIZE];
	char entry[DRV_INTR_XML_NAME_SIZE];
	const drv_intr_xml_path path = {DRV_INTR_XML_ROOT, node, entry};
	level_names names;
	u32 backplane_type = 0;

	if (drv_intr_get_backplane_type(&backplane_type) != 0) {
		intr_info("[%s]not support backplane cfg", desc);
		return 0;
	}
	if (sprintf_s(node, sizeof(node), "slot_isr_0x%x", backplane_type) < 0) {
		intr_info("[%s]sprintf_s node_name fail", desc);
		return -EFAULT;
	}
	for (u32 i = 0; i < config::MAX_LEAF_ENTRIES; i++) {
		if (sprintf_s(entry, sizeof(entry), "hwirq_cfg%u", i) < 0) {
			intr_err("[%s]sprintf_s entry_name fail", desc);
			return -EFAULT;
		}
		if (!entry_exists(inst_id, path))
			return 0;
		if (!drv_intr_slot_hwirq_cfg_is_mactch(inst_id, combiner_id, path))
			continue;
		const int ret =
			drv_intr_get_xml_one_hwirq_cfg(inst_id, path, chip_id, names, hwirq_list);
		if (ret != 0)
			return ret;
	}
	return 0;
}

void drv_intr_free_hwirq_cfg_list(list<drv_intr_hwirq_cfg> &hwirq_list)
{
	while (drv_intr_hwirq_cfg *leaf = hwirq_list.first()) {
		hwirq_list.unlink(*leaf);
		kfree(leaf);
	}
}
