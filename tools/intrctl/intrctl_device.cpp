// SPDX-License-Identifier: GPL-2.0
//
// The control device as intrctl uses it.
#include "intrctl_device.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace intrctl {

void complain(const std::string &what)
{
	std::fprintf(stderr, "intrctl: %s\n", what.c_str());
}

std::string leaf::name() const
{
	char text[64];

	std::snprintf(text, sizeof(text), "leaf index_id=0x%x type=%u", index_id, type);
	return text;
}

drv_intr_ioctl_para leaf::para() const
{
	drv_intr_ioctl_para para{};

	para.index_id = index_id;
	para.type = type;
	return para;
}

static std::string why_not_open(int code)
{
	switch (code) {
	case ENOENT:
	case ENXIO:
	case ENODEV:
		return "no such device; load the driver (intr.ko), or name its device with "
		       "--device";
	case EACCES:
	case EPERM:
		return "no permission; run as root";
	default:
		return std::string("cannot be opened: ") + std::strerror(code) +
		       "; name the driver's device with --device";
	}
}

control_device::control_device(const std::string &path)
	: path_(path), file_(open(path.c_str(), O_RDWR | O_CLOEXEC))
{
	if (file_ < 0)
		throw failure(path + ": " + why_not_open(errno));
}

control_device::~control_device()
{
	close(file_);
}

int control_device::try_command(uint32_t cmd, drv_intr_ioctl_para &para)
{
	return ioctl(file_, cmd, &para) < 0 ? errno : 0;
}

// The driver has one code for everything, and a log for the reasons.
void control_device::command(uint32_t cmd, drv_intr_ioctl_para &para, const std::string &what,
			     const std::string &doubt)
{
	const int code = try_command(cmd, para);

	switch (code) {
	case 0:
		return;
	case EFAULT:
		throw failure(what + " refused by the driver; " + doubt +
			      (doubt.empty() ? "" : " ") + "/proc/diag/log has the reason");
	case ENOTTY:
	case EINVAL:
		throw failure(path_ + ": not the interrupt driver's control device; name that "
				      "with --device");
	default:
		throw failure(what + ": " + std::strerror(code) + "; see /proc/diag/log");
	}
}

} // namespace intrctl
