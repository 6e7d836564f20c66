// SPDX-License-Identifier: GPL-2.0
//
// Reads a configuration written as XML and checks it. Every error becomes one
// line that names the place and says what to do.
#ifndef TOOLS_CFG_XML_H
#define TOOLS_CFG_XML_H

#include <string>
#include <string_view>
#include <vector>

#include "cfg_model.h"

namespace cfg {

struct diagnostic {
	unsigned line;
	bool is_error; // otherwise a warning: the configuration can be used
	std::string text;
};

class diagnostics {
public:
	void error(unsigned line, std::string text);
	void warning(unsigned line, std::string text);
	bool has_errors() const;

	// Sorted by line; one text on one line is kept once.
	const std::vector<diagnostic> &sorted();

private:
	std::vector<diagnostic> list;
};

// What could be understood, even when there are errors.
document read_xml(std::string_view text, diagnostics &found);

// What can only be seen across entries: gaps in the numbering, duplicates,
// overlapping registers, combiners that nobody can bring up.
void check_document(const document &document, diagnostics &found);

} // namespace cfg

#endif
