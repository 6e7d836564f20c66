// SPDX-License-Identifier: GPL-2.0
//
// intr-sim-sources: prints a configuration written as XML as sources of the
// virtual board's CPLD simulation, one command for each leaf.
//
// Exit code: 0 done, 1 errors in the input or combiners whose parent line the
// virtual board does not have (one line each on the standard error output), 2 wrong
// usage or a file that cannot be read.
#include <string>

#include <CLI/CLI.hpp>

#include "cfg_program.h"
#include "cfg_sources.h"

namespace {

int run(const std::string &input)
{
	cfg::document document;
	cfg::diagnostics found;
	const int code = cfg::read_document(input, document);

	if (code != cfg::exit_ok)
		return code;
	const std::string text = cfg::sources(document, found);
	cfg::report(input, found);
	return found.has_errors() ? cfg::exit_errors : cfg::print(text);
}

} // namespace

int main(int argc, char **argv)
{
	CLI::App app("Print a \"source\" command of the CPLD simulation for each leaf of a "
		     "configuration.\n"
		     "Mistakes are reported as FILE:LINE: error: WHAT; WHAT TO DO.\n"
		     "Exit code: 0 done, 1 errors in FILE, 2 usage or file I/O error.",
		     "intr-sim-sources");
	std::string input;

	app.add_option("FILE", input, "configuration as XML")->required();
	try {
		app.parse(argc, argv);
	} catch (const CLI::ParseError &error) {
		return app.exit(error) ? cfg::exit_failure : cfg::exit_ok;
	}
	return run(input);
}
