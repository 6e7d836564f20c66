// SPDX-License-Identifier: GPL-2.0
//
// Files, messages and exit codes of the programs over a configuration file.
#include "cfg_program.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

namespace cfg {
namespace {

constexpr size_t input_max = 16u << 20; // far beyond any table; stops endless devices

bool read_all(const std::string &path, std::string &content)
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

} // namespace

int io_error(const std::string &file, const std::string &what)
{
	std::fprintf(stderr, "%s: %s: %s\n", program_invocation_short_name, file.c_str(),
		     what.c_str());
	return exit_failure;
}

int read_file(const std::string &path, std::string &content)
{
	if (read_all(path, content))
		return exit_ok;
	return io_error(path, std::string("cannot be read: ") + std::strerror(errno));
}

int print(const std::string &text)
{
	if (std::fputs(text.c_str(), stdout) < 0 || std::fflush(stdout))
		return io_error("standard output", std::strerror(errno));
	return exit_ok;
}

void report(const std::string &file, diagnostics &found)
{
	for (const diagnostic &item : found.sorted())
		std::fprintf(stderr, "%s:%u: %s: %s\n", file.c_str(), item.line,
			     item.is_error ? "error" : "warning", item.text.c_str());
}

int read_document(const std::string &path, document &document)
{
	std::string content;
	diagnostics found;
	const int code = read_file(path, content);

	if (code != exit_ok)
		return code;
	document = read_xml(content, found);
	report(path, found);
	return found.has_errors() ? exit_errors : exit_ok;
}

} // namespace cfg
