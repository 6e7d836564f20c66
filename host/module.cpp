// SPDX-License-Identifier: GPL-2.0
//
// The module that the driver is, as the kernel's loader keeps it: who uses it
// holds it, and nobody comes in any more once it goes.
#include "internal.h"

namespace model {

enum class module_state {
	unmanaged, // a test that calls the driver's start and stop itself
	starting,
	live,
	going,
};

static std::mutex module_lock;
static module_state state;
static u32 users; // open device files, and sockets of the driver's protocol

bool module_get()
{
	const std::lock_guard guard(module_lock);

	if (state == module_state::going)
		return false;
	users++;
	return true;
}

void module_put()
{
	const std::lock_guard guard(module_lock);

	users--;
}

bool module_survives_open_files()
{
	const std::lock_guard guard(module_lock);

	return state == module_state::starting;
}

void module_reset()
{
	state = module_state::unmanaged;
	users = 0;
}

static void set_state(module_state next)
{
	const std::lock_guard guard(module_lock);

	state = next;
}

static bool unused()
{
	const std::lock_guard guard(module_lock);

	return users == 0;
}

} // namespace model

using namespace model;

int host_module_load(int (*start)(void))
{
	{
		const std::lock_guard guard(module_lock);

		if (state != module_state::unmanaged)
			return -eexist;
		state = module_state::starting;
	}
	const int ret = start();
	if (ret)
		wait_until(unused, "a module whose start failed waits for its open files");
	set_state(ret ? module_state::unmanaged : module_state::live);
	return ret;
}

int host_module_unload(void (*exit)(void))
{
	{
		const std::lock_guard guard(module_lock);

		if (state != module_state::live)
			return -enoent;
		if (users)
			return -eagain;
		state = module_state::going;
	}
	exit();
	set_state(module_state::unmanaged);
	return 0;
}
