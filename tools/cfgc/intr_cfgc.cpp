// SPDX-License-Identifier: GPL-2.0
//
// intr-cfgc: checks a configuration written as XML and compiles it to the table
// that the xml module loads.
//
// Exit code: 0 done, 1 mistakes in the input (one line each on the standard
// error output), 2 wrong usage or a file that cannot be read or written.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include <CLI/CLI.hpp>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "cfg_show.h"
#include "cfg_sources.h"
#include "cfg_table.h"
#include "cfg_xml.h"

namespace {

constexpr int exit_ok = 0, exit_mistakes = 1, exit_trouble = 2;
constexpr size_t input_max = 16u << 20; // far beyond any table; stops endless devices

enum class job { compile, check, show, sources, dump };

int trouble(const std::string &file, const std::string &what)
{
	std::fprintf(stderr, "intr-cfgc: %s: %s\n", file.c_str(), what.c_str());
	return exit_trouble;
}

bool read_file(const std::string &path, std::string &content)
{
	char buffer[65536];
	ssize_t count;
	const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);

	if (file < 0)
		return false;
	while ((count = read(file, buffer, sizeof(buffer))) > 0) {
		content.append(buffer, static_cast<size_t>(count));
		if (content.size() > input_max) {
			errno = EFBIG;
			count = -1;
			break;
		}
	}
	const int code = errno;
	close(file);
	errno = code;
	return count == 0;
}

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

int print(const std::string &text)
{
	if (std::fputs(text.c_str(), stdout) < 0 || std::fflush(stdout))
		return trouble("standard output", std::strerror(errno));
	return exit_ok;
}

void report(const std::string &file, cfg::diagnostics &found)
{
	for (const cfg::diagnostic &item : found.sorted())
		std::fprintf(stderr, "%s:%u: %s: %s\n", file.c_str(), item.line,
			     item.is_error ? "error" : "warning", item.text.c_str());
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
		return exit_mistakes;
	}
	if (is_same_file(input, output))
		return trouble(output, "is the input itself; name another file behind -o");
	if (!replace_file(output, bytes))
		return trouble(output, std::string("cannot be written: ") + std::strerror(errno));
	return print(output + ": " + std::to_string(bytes.size()) + " bytes, " + summary(document) +
		     "\n");
}

int run_dump(const std::string &input, const std::string &content)
{
	std::string text;

	if (cfg::dump(cfg::bytes(content.begin(), content.end()), text))
		return print(text);
	std::fprintf(stderr, "%s: error: no valid table: %s\n", input.c_str(), text.c_str());
	return exit_mistakes;
}

int print_sources(const cfg::document &document, const std::string &input)
{
	cfg::diagnostics found;
	const std::string text = cfg::sources(document, found);

	report(input, found);
	return found.has_errors() ? exit_mistakes : print(text);
}

int run(job job, const std::string &input, const std::string &output)
{
	std::string content;

	if (!read_file(input, content))
		return trouble(input, std::string("cannot be read: ") + std::strerror(errno));
	if (job == job::dump)
		return run_dump(input, content);

	cfg::diagnostics found;
	const cfg::document document = cfg::read_xml(content, found);
	report(input, found);
	if (found.has_errors())
		return exit_mistakes;
	switch (job) {
	case job::compile:
		return compile(document, input, output);
	case job::check:
		return print(input + ": ok, " + summary(document) + "\n");
	case job::show:
		return print(cfg::show(document));
	case job::sources:
		return print_sources(document, input);
	case job::dump:
		break;
	}
	return exit_trouble;
}

} // namespace

int main(int argc, char **argv)
{
	CLI::App app("Check an interrupt combiner configuration and compile it to a table.\n"
		     "Mistakes are reported as FILE:LINE: error: WHAT; WHAT TO DO.\n"
		     "Exit code: 0 done, 1 mistakes in FILE, 2 usage or file trouble.",
		     "intr-cfgc");
	std::string input, output;
	bool check = false, show = false, sources = false, dump = false;

	app.add_option("FILE", input, "configuration as XML; with --dump a table")->required();
	auto *job_group = app.add_option_group("what to do");
	job_group->add_option("-o", output, "compile FILE into this table")->type_name("TABLE");
	job_group->add_flag("--check", check, "only check FILE");
	job_group->add_flag("--show", show, "draw combiners, register chains and leaves");
	job_group->add_flag("--sources", sources,
			    "print a \"source\" command of the CPLD simulation for each leaf");
	job_group->add_flag("--dump", dump, "verify a table and print it as XML");
	job_group->require_option(1);
	try {
		app.parse(argc, argv);
	} catch (const CLI::ParseError &error) {
		return app.exit(error) ? exit_trouble : exit_ok;
	}
	const job job = check	  ? job::check
			: show	  ? job::show
			: sources ? job::sources
			: dump	  ? job::dump
				  : job::compile;
	return run(job, input, output);
}
