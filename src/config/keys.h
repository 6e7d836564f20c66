// SPDX-License-Identifier: GPL-2.0
//
// Configuration values by name. Every value is a u32, addressed by instance
// id, root name, node, entry and key in the XML configuration module; the
// readers here describe what they want as rows with text defaults.
//
// Process context. The readers keep no state and take no lock.
#ifndef INTR_CONFIG_KEYS_H
#define INTR_CONFIG_KEYS_H

#include "core/records.h"
#include "table/config_keys.h"

inline constexpr char DRV_INTR_XML_ROOT[] = "irq_combiner"; // first name of every path
inline constexpr char DRV_INTR_XML_GLOBAL_CFG[] = "global_cfg";
inline constexpr char DRV_INTR_XML_COMMON[] = "common";

// Room for a formatted node or entry name.
inline constexpr size_t DRV_INTR_XML_NAME_SIZE = 40;

struct drv_intr_xml_path {
	const char *name1;
	const char *name2; // node
	const char *name3; // entry
};

// A required row has no default; an optional one has a text or a reference.
struct drv_intr_cfg_map_item {
	u32 must_exist;
	const char *key;
	u32 *dest;
	const char *default_str; // C notation: 0x, leading 0, decimal
	const u32 *default_ref; // used without default_str: the value at the moment of reading
};

// The row of a key of the configuration table, read under its own name or another. The
// default is given as the number that the key keeps: it is not parsed at every reading.
[[nodiscard]] constexpr drv_intr_cfg_map_item drv_intr_cfg_item(const config::key &key, u32 *dest,
								const char *name = nullptr)
{
	return {!key.fallback, name ? name : key.name, dest, nullptr,
		key.fallback ? &key.fallback_value : nullptr};
}

// Reads the rows in order. 0, or -EINVAL at the first required key that is
// missing; rows before it keep their values, later ones are not touched.
[[nodiscard]] int drv_intr_get_cfg_by_map(u32 inst_id, const drv_intr_xml_path &path, u32 count,
					  const drv_intr_cfg_map_item *items);

// Fills the control block's global_cfg. Called once, at module start.
[[nodiscard]] int drv_intr_get_cfg();

// Which combiners (bits 0 to 3) the card's configuration names; 0 without the key.
void drv_intr_get_card_combiner_bitmap(u32 inst_id, u32 &bitmap);

// The word that people read for a value; "unknown" for values that have none.
[[nodiscard]] const char *drv_intr_get_int_type_desc(u32 int_type);
[[nodiscard]] const char *drv_intr_get_irq_type_desc(u32 irq_type);

// All keys are optional: only a failing reader gives anything but 0.
[[nodiscard]] int drv_intr_get_xml_common_cfg(const char *cfg_name, u32 inst_id,
					      drv_intr_common_cfg *common);

#endif
