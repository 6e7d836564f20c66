// SPDX-License-Identifier: GPL-2.0
//
// The open files of processes, by handle. Each place has a lock of its own, so
// that threads which use different files are not ordered by the look-up.
#include "internal.h"

#include <utility>

namespace model {

namespace {

struct place {
	std::mutex lock;
	std::shared_ptr<file> opened;
};

} // namespace

constexpr int most_files = 1024;

static place places[most_files]; // of the handles from 1

static place *place_of(int handle)
{
	return handle > 0 && handle <= most_files ? &places[handle - 1] : nullptr;
}

// The lowest free handle, as the kernel gives them.
int file_install(std::shared_ptr<file> opened)
{
	for (int handle = 1; handle <= most_files; handle++) {
		place &at = *place_of(handle);
		const std::lock_guard guard(at.lock);

		if (at.opened)
			continue;
		at.opened = std::move(opened);
		return handle;
	}
	bug("more than %d open files", most_files);
	return -emfile;
}

std::shared_ptr<file> file_of(int handle)
{
	place *at = place_of(handle);

	if (!at)
		return nullptr;
	const std::lock_guard guard(at->lock);
	return at->opened;
}

std::shared_ptr<file> file_take(int handle)
{
	place *at = place_of(handle);

	if (!at)
		return nullptr;
	const std::lock_guard guard(at->lock);
	return std::exchange(at->opened, nullptr);
}

u32 files_left(std::string &text)
{
	u32 left = 0;

	for (place &at : places) {
		const std::lock_guard guard(at.lock);

		if (!at.opened)
			continue;
		text += " open file \"" + at.opened->name + "\"";
		left++;
	}
	return left;
}

void files_reset()
{
	for (place &at : places)
		at.opened = nullptr;
}

} // namespace model
