// SPDX-License-Identifier: GPL-2.0
//
// A configuration as sources of the virtual board's CPLD simulation.
#ifndef SIM_CFG_SOURCES_H
#define SIM_CFG_SOURCES_H

#include <string>

#include "cfg_xml.h"

namespace cfg {

// One command of the CPLD simulation for each leaf:
//	source NAME INST LINE CHIP:EN:STATUS:SHIFT:MASK:KIND...
// An error for each combiner with leaves whose parent line the virtual board does
// not have; the text is of no use then.
std::string sources(const document &document, diagnostics &found);

} // namespace cfg

#endif
