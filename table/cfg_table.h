// SPDX-License-Identifier: GPL-2.0
//
// Writes configuration tables (layout: xml_table.h) from a plain
// in-memory model. Knows nothing of XML and checks no meaning: any names and
// values can be written, so that tests can also configure nonsense.
#ifndef TABLE_CFG_TABLE_H
#define TABLE_CFG_TABLE_H

#include <map>
#include <string>
#include <vector>

#include "xml_table.h"

namespace cfg {

using keys = std::map<std::string, u32>;
using entries = std::map<std::string, keys>;
using nodes = std::map<std::string, entries>;

// table.nodes["irq_combiner@3"]["global_cfg"]["chip_id"] = 2;
struct table {
	u32 instance = XML_TABLE_BOARD;
	cfg::nodes nodes;
};

using bytes = std::vector<u8>;

// True with the table in out; false with one line in why: a name that no table
// can hold, or more bytes than a table may have.
[[nodiscard]] bool write_table(const table &table, bytes &out, std::string &why);

// Give a table whose bytes were changed by hand a checksum that fits again.
void reseal(bytes &table);

} // namespace cfg

#endif
