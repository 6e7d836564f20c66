// SPDX-License-Identifier: GPL-2.0
//
// intr-cfgc: checks a configuration written as XML and compiles it to the table
// that the xml module loads.
//
// Exit code: 0 done, 1 errors in the input (one line each on the standard
// error output), 2 wrong usage or a file that cannot be read or written.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include <CLI/CLI.hpp>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "cfg_program.h"
#include "cfg_show.h"
#include "cfg_table.h"

namespace {

enum class job { compile, check, show, dump };

bool write_all(int file, const cfg::bytes &bytes)
{
	size_t done = 0;

	while (done < bytes.size()) {
		const ssize_t count = write(file, bytes.data() + done, bytes.size() - done);
		if (count < 0)
			return false;
		done += static_cast<size_t>(count);
	}
	return true;
}

// The old file stays until the new one is complete on the disk.
bool replace_file(const std::string &path, const cfg::bytes &bytes)
{
	std::string temporary = path + ".XXXXXX";
	const int file = mkostemp(temporary.data(), O_CLOEXEC);
	const mode_t mask = umask(0);

	umask(mask);
	if (file < 0)
		return false;
	bool good = write_all(file, bytes) && fchmod(file, 0666 & ~mask) == 0 && fsync(file) == 0;
	good = close(file) == 0 && good;
	if (good && rename(temporary.c_str(), path.c_str()) == 0)
		return true;
	const int code = errno;
	unlink(temporary.c_str());
	errno = code;
	return false;
}

bool is_same_file(const std::string &a, const std::string &b)
{
	struct stat first, second;

	return stat(a.c_str(), &first) == 0 && stat(b.c_str(), &second) == 0 &&
	       first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

std::string summary(const cfg::document &document)
{
	const std::vector<cfg::combiner> combiners = cfg::resolve(document);
	size_t leaves = 0;

	for (const cfg::combiner &combiner : combiners)
		leaves += combiner.leaves.size();
	return std::to_string(combiners.size()) + " combiners, " + std::to_string(leaves) +
	       " leaves";
}

int compile(const cfg::document &document, const std::string &input, const std::string &output)
{
	cfg::bytes bytes;
	std::string why;

	if (!cfg::write_table(document.to_table(), bytes, why)) {
		std::fprintf(stderr, "%s:1: error: %s\n", input.c_str(), why.c_str());
		return cfg::exit_errors;
	}
	if (is_same_file(input, output))
		return cfg::io_error(output, "is the input itself; name another file behind -o");
	if (!replace_file(output, bytes))
		return cfg::io_error(output,
				     std::string("cannot be written: ") + std::strerror(errno));
	return cfg::print(output + ": " + std::to_string(bytes.size()) + " bytes, " +
			  summary(document) + "\n");
}

int dump(const std::string &input)
{
	std::string content, text;
	const int code = cfg::read_file(input, content);

	if (code != cfg::exit_ok)
		return code;
	if (cfg::dump(cfg::bytes(content.begin(), content.end()), text))
		return cfg::print(text);
	std::fprintf(stderr, "%s: error: no valid table: %s\n", input.c_str(), text.c_str());
	return cfg::exit_errors;
}

int run(job job, const std::string &input, const std::string &output)
{
	if (job == job::dump)
		return dump(input);

	cfg::document document;
	const int code = cfg::read_document(input, document);
	if (code != cfg::exit_ok)
		return code;
	switch (job) {
	case job::compile:
		return compile(document, input, output);
	case job::check:
		return cfg::print(input + ": ok, " + summary(document) + "\n");
	case job::show:
		return cfg::print(cfg::show(document));
	case job::dump:
		break;
	}
	return cfg::exit_failure;
}

} // namespace

int main(int argc, char **argv)
{
	CLI::App app("Check an interrupt combiner configuration and compile it to a table.\n"
		     "Mistakes are reported as FILE:LINE: error: WHAT; WHAT TO DO.\n"
		     "Exit code: 0 done, 1 errors in FILE, 2 usage or file I/O error.",
		     "intr-cfgc");
	std::string input, output;
	bool check = false, show = false, dump = false;

	app.add_option("FILE", input, "configuration as XML; with --dump a table")->required();
	auto *job_group = app.add_option_group("what to do");
	job_group->add_option("-o", output, "compile FILE into this table")->type_name("TABLE");
	job_group->add_flag("--check", check, "only check FILE");
	job_group->add_flag("--show", show, "draw combiners, register chains and leaves");
	job_group->add_flag("--dump", dump, "verify a table and print it as XML");
	job_group->require_option(1);
	try {
		app.parse(argc, argv);
	} catch (const CLI::ParseError &error) {
		return app.exit(error) ? cfg::exit_failure : cfg::exit_ok;
	}
	const job job = check ? job::check : show ? job::show : dump ? job::dump : job::compile;
	return run(job, input, output);
}
