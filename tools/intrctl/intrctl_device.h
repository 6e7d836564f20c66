// SPDX-License-Identifier: GPL-2.0
//
// The control device as intrctl uses it: uapi/intr.h, with each failure reported as
// one line for people.
#ifndef TOOLS_INTRCTL_DEVICE_H
#define TOOLS_INTRCTL_DEVICE_H

#include <cstdint>
#include <stdexcept>
#include <string>

#include "uapi/intr.h"

namespace intrctl {

enum exit_code { exit_done = 0, exit_failed = 1, exit_usage = 2, exit_idle = 3 };

// What failed, where, and what to do: one line, without its end.
class failure : public std::runtime_error {
public:
	using std::runtime_error::runtime_error;
};

// One line on the standard error output.
void complain(const std::string &what);

struct leaf {
	uint32_t index_id = 0, type = 0;

	bool operator==(const leaf &) const = default;
	// "leaf index_id=0x12 type=3"
	std::string name() const;
	drv_intr_ioctl_para para() const;
};

class control_device {
public:
	// Throws failure.
	explicit control_device(const std::string &path);
	~control_device();
	control_device(const control_device &) = delete;
	control_device &operator=(const control_device &) = delete;

	// `what` names the object and what shall be done to it, as in
	// "leaf index_id=0x12 type=3: enabling"; `doubt` asks for the likely reason
	// of a refusal, and may be empty. Throws failure.
	void command(uint32_t cmd, drv_intr_ioctl_para &para, const std::string &what,
		     const std::string &doubt);
	// 0 or the errno.
	int try_command(uint32_t cmd, drv_intr_ioctl_para &para);

private:
	std::string path_;
	int file_;
};

} // namespace intrctl

#endif
