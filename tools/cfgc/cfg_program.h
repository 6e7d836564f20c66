// SPDX-License-Identifier: GPL-2.0
//
// What every program over a configuration file shares: how it reads the file, what
// it prints and how it ends.
#ifndef TOOLS_CFG_PROGRAM_H
#define TOOLS_CFG_PROGRAM_H

#include <string>

#include "cfg_xml.h"

namespace cfg {

// Exit codes: done; errors in the input, one line each on the standard error
// output; wrong usage, or a file that cannot be read or written.
inline constexpr int exit_ok = 0, exit_errors = 1, exit_failure = 2;

// All that return an int give one of these, and have printed why when it is not exit_ok.
int io_error(const std::string &file, const std::string &what);
int read_file(const std::string &path, std::string &content);
int print(const std::string &text);

// FILE:LINE: error: WHAT; WHAT TO DO
void report(const std::string &file, diagnostics &found);
// Reads and checks; the document is of no use after errors.
int read_document(const std::string &path, document &document);

} // namespace cfg

#endif
