// SPDX-License-Identifier: GPL-2.0
//
// What intr-cfgc prints about a configuration.
#ifndef TOOLS_CFG_SHOW_H
#define TOOLS_CFG_SHOW_H

#include <string>

#include "cfg_model.h"

namespace cfg {

// The combiners as trees of register levels with the leaves at their ends.
std::string show(const document &document);

// A table as XML that compiles to the same table. False with one line in text
// when the bytes are no valid table.
[[nodiscard]] bool dump(const bytes &bytes, std::string &text);

} // namespace cfg

#endif
