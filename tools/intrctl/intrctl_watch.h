// SPDX-License-Identifier: GPL-2.0
//
// intrctl watch: receives leaf interrupts and prints them, one line each.
#ifndef TOOLS_INTRCTL_WATCH_H
#define TOOLS_INTRCTL_WATCH_H

#include <vector>

#include "intrctl_device.h"

namespace intrctl {

struct watch_options {
	std::vector<leaf> leaves; // each once
	uint32_t num_events = 0; // 0: no end
	double idle_timeout = 0; // seconds, 0: none
	uint32_t receive_buffer = 0; // bytes, 0: the system's usual size
	bool answer = true; // enable the leaves, at the start and after each message
	bool json = false;
};

// Returns the exit code once the events are there, nothing comes any more, or a
// signal ends it. Throws failure when it cannot begin.
int watch(control_device &device, const watch_options &options);

} // namespace intrctl

#endif
