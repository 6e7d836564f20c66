// SPDX-License-Identifier: GPL-2.0
//
// User memory, and the calls of processes.
//
// The user addresses are those of this process, where a bad one would be the end
// of it. A pipe takes and gives bytes at any address, and only refuses a bad one.
// Page by page, as a page is accessible or is not.
#include "internal.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace model {

namespace {

// One a thread: a common one would order the threads for the thread checker.
class page_pipe {
public:
	static constexpr size_t page_size = 4096;

	page_pipe() { open(); }
	~page_pipe() { close(); }
	page_pipe(const page_pipe &) = delete;
	page_pipe &operator=(const page_pipe &) = delete;

	// At most a page, and within one where it is user memory. False: a bad address.
	bool move(void *to, const void *from, size_t size)
	{
		if (write(ends_[1], from, size) != static_cast<ssize_t>(size))
			return false;
		if (read(ends_[0], to, size) == static_cast<ssize_t>(size))
			return true;
		close(); // the bytes are still in it
		open();
		return false;
	}

private:
	void open()
	{
		if (pipe2(ends_, O_CLOEXEC)) {
			bug("no pipe for copies of user memory: %s", strerror(errno));
			abort();
		}
	}
	void close()
	{
		::close(ends_[0]);
		::close(ends_[1]);
	}

	int ends_[2];
};

} // namespace

static bool move_page(void *to, const void *from, size_t size)
{
	static thread_local page_pipe pipe;

	return pipe.move(to, from, size);
}

// The bytes from an address to the end of its page; none of a range that wraps around.
static size_t part_of(const void *user, size_t left)
{
	const auto at = reinterpret_cast<uintptr_t>(user);

	if (at + left < at)
		return 0;
	return std::min(left, page_pipe::page_size - at % page_pipe::page_size);
}

template <typename Move> static size_t by_page(const void *user, size_t size, Move move)
{
	const auto *first = static_cast<const char *>(user);
	size_t done = 0;

	while (done < size) {
		const size_t part = part_of(first + done, size - done);

		if (!part || !move(done, part))
			break;
		done += part;
	}
	return done;
}

size_t read_user(void *to, const void *user, size_t size)
{
	return by_page(user, size, [&](size_t done, size_t part) {
		return move_page(static_cast<char *>(to) + done,
				 static_cast<const char *>(user) + done, part);
	});
}

size_t write_user(void *user, const void *from, size_t size)
{
	return by_page(user, size, [&](size_t done, size_t part) {
		return move_page(static_cast<char *>(user) + done,
				 static_cast<const char *>(from) + done, part);
	});
}

process_call::~process_call()
{
	const context &self = current();

	if (self.held_count || self.irqs_off || self.srcu_depth)
		bug("%s returned with a lock held, interrupts off or a read-side section open",
		    what_);
}

} // namespace model

using namespace model;

unsigned long plat_copy_from_user(void *to, const void *user, unsigned long size)
{
	long injected;

	if (fails(service::copy_from_user, injected))
		return static_cast<unsigned long>(injected);
	const size_t done = might_sleep("copy_from_user") ? read_user(to, user, size) : 0;
	memset(static_cast<char *>(to) + done, 0, size - done); // as the kernel leaves it
	return size - done;
}

unsigned long plat_copy_to_user(void *user, const void *from, unsigned long size)
{
	long injected;

	if (fails(service::copy_to_user, injected))
		return static_cast<unsigned long>(injected);
	return size - (might_sleep("copy_to_user") ? write_user(user, from, size) : 0);
}
