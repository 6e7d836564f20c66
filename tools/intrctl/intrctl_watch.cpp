// SPDX-License-Identifier: GPL-2.0
//
// intrctl watch: a subscriber as uapi/intr.h describes it.
//
// Every message is answered with one enable of the leaf, whatever becomes of the watch: what
// is still unread at the end is answered too. The driver sends by port id, and port
// ids are used again: a message may come from another process, or belong to a
// subscription that an earlier owner of the port has left behind.
#include "intrctl_watch.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <optional>
#include <utility>

#include <linux/netlink.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <unistd.h>

namespace intrctl {

namespace {

using clock = std::chrono::steady_clock;

class descriptor {
public:
	explicit descriptor(int file) : file_(file) {}
	~descriptor()
	{
		if (file_ >= 0)
			close(file_);
	}
	descriptor(const descriptor &) = delete;
	descriptor &operator=(const descriptor &) = delete;
	int get() const { return file_; }

private:
	int file_;
};

// SIGINT, SIGTERM and SIGHUP become readable instead of ending the process, which
// must unsubscribe first.
int open_signals()
{
	sigset_t set;

	sigemptyset(&set);
	sigaddset(&set, SIGINT);
	sigaddset(&set, SIGTERM);
	sigaddset(&set, SIGHUP);
	sigprocmask(SIG_BLOCK, &set, nullptr);
	signal(SIGPIPE, SIG_IGN);
	return signalfd(-1, &set, SFD_CLOEXEC);
}

std::string errno_text()
{
	return std::strerror(errno);
}

int open_socket(uint32_t protocol)
{
	const int file = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, static_cast<int>(protocol));

	if (file >= 0)
		return file;
	const std::string what = "netlink protocol " + std::to_string(protocol) + ": ";
	if (errno == EPROTONOSUPPORT)
		throw failure(what + "the kernel has no such protocol; set netlink_id of the "
				     "board's configuration to a free one below 32 and load the "
				     "driver again");
	throw failure(what + "no socket: " + errno_text());
}

// A bound netlink socket, and what arrives at it.
class receiver {
public:
	receiver(uint32_t protocol, uint32_t buffer);

	int file() const { return socket_.get(); }
	uint32_t port() const { return port_; }
	// The next leaf notified, without waiting. What is no notification is
	// reported and skipped.
	std::optional<leaf> next();
	// Whether messages were lost since the last call, for lack of room.
	bool lost() { return std::exchange(lost_, false); }

private:
	static bool is_notification(const drv_intr_nl_msg &message, ssize_t size,
				    const sockaddr_nl &sender);

	descriptor socket_;
	uint32_t port_ = 0;
	bool lost_ = false;
};

receiver::receiver(uint32_t protocol, uint32_t buffer) : socket_(open_socket(protocol))
{
	const int size = static_cast<int>(std::min<uint32_t>(buffer, INT_MAX));
	sockaddr_nl address{};
	socklen_t length = sizeof(address);

	// The second form is cut to a limit of the system, which only root may pass.
	if (buffer != 0 &&
	    setsockopt(file(), SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof(size)) != 0 &&
	    setsockopt(file(), SOL_SOCKET, SO_RCVBUF, &size, sizeof(size)) != 0)
		throw failure("--receive-buffer " + std::to_string(buffer) + ": " + errno_text());
	address.nl_family = AF_NETLINK;
	if (bind(file(), reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0 ||
	    getsockname(file(), reinterpret_cast<sockaddr *>(&address), &length) != 0)
		throw failure("netlink protocol " + std::to_string(protocol) +
			      ": the socket cannot be bound: " + errno_text());
	port_ = address.nl_pid;
}

bool receiver::is_notification(const drv_intr_nl_msg &message, ssize_t size,
			       const sockaddr_nl &sender)
{
	if (sender.nl_pid != 0) {
		complain("netlink: a message from port " + std::to_string(sender.nl_pid) +
			 " ignored: not sent by the kernel");
		return false;
	}
	if (size == sizeof(message) && message.nlmsg_len == sizeof(message) &&
	    message.nlmsg_type == 0)
		return true;
	complain("netlink: a message of " + std::to_string(size) +
		 " bytes ignored: no notification; does the driver fit this program?");
	return false;
}

std::optional<leaf> receiver::next()
{
	for (;;) {
		drv_intr_nl_msg message{};
		sockaddr_nl sender{};
		iovec part = {&message, sizeof(message)};
		msghdr header{};

		header.msg_name = &sender;
		header.msg_namelen = sizeof(sender);
		header.msg_iov = &part;
		header.msg_iovlen = 1;
		// With MSG_TRUNC the size is that of the whole message.
		const ssize_t size = recvmsg(file(), &header, MSG_DONTWAIT | MSG_TRUNC);
		if (size >= 0 && is_notification(message, size, sender))
			return leaf{message.leaf.index_id, message.leaf.type};
		if (size >= 0 || errno == EINTR)
			continue;
		if (errno == EAGAIN)
			return {};
		if (errno != ENOBUFS)
			throw failure("netlink: receiving failed: " + errno_text());
		lost_ = true;
	}
}

uint32_t netlink_protocol(control_device &device)
{
	drv_intr_ioctl_para para{};

	device.command(DRV_INTR_IOC_GET_NETLINK_ID, para, "netlink protocol: reading", "");
	return para.result;
}

class watcher {
public:
	watcher(control_device &device, const watch_options &options)
		: device_(device), options_(options), signals_(open_signals()),
		  receiver_(netlink_protocol(device), options.receive_buffer)
	{
		if (signals_.get() < 0)
			throw failure("signals cannot be caught: " + errno_text());
	}

	void subscribe();
	// Until its end: the exit code. Throws failure.
	int run();
	// Gives everything back; false when a subscription had ended before.
	bool end();

private:
	enum class woken { ready, signal, idle };

	woken wait(int file, short events, std::optional<clock::time_point> deadline);
	std::optional<clock::time_point> idle_deadline() const;
	drv_intr_ioctl_para para_with_port(const leaf &leaf) const;
	void renew();
	bool handle(const leaf &leaf);
	void drop_stray(const leaf &leaf);
	int print(const leaf &leaf);

	control_device &device_;
	const watch_options &options_;
	descriptor signals_;
	receiver receiver_;
	std::vector<leaf> subscribed_;
	uint32_t events_ = 0;
	bool lost_ = false;
};

drv_intr_ioctl_para watcher::para_with_port(const leaf &leaf) const
{
	drv_intr_ioctl_para para = leaf.para();

	para.pid = receiver_.port();
	return para;
}

drv_intr_ioctl_para enable_para(const leaf &leaf)
{
	drv_intr_ioctl_para para = leaf.para();

	para.enable = 1;
	return para;
}

void watcher::subscribe()
{
	for (const leaf &leaf : options_.leaves) {
		drv_intr_ioctl_para para = para_with_port(leaf);

		device_.command(DRV_INTR_IOC_SET_PID, para, leaf.name() + ": subscribing",
				"is the leaf configured?");
		subscribed_.push_back(leaf);
		if (!options_.answer)
			continue;
		para = enable_para(leaf);
		device_.command(DRV_INTR_IOC_SET_INT_EN, para, leaf.name() + ": enabling",
				"has its combiner gone?");
	}
}

// The driver has ended the subscriptions whose messages found no room, and does
// not say which. Only after the last message was read does the socket take new
// ones: a subscription renewed before would end again, and no error would say so.
void watcher::renew()
{
	complain("netlink: receive buffer overrun, occurrences are lost; subscribing again (more "
		 "room: --receive-buffer)");
	lost_ = false;
	for (const leaf &leaf : options_.leaves) {
		drv_intr_ioctl_para para = para_with_port(leaf);

		device_.command(DRV_INTR_IOC_SET_PID, para, leaf.name() + ": subscribing again",
				"has its combiner gone?");
	}
}

std::optional<clock::time_point> watcher::idle_deadline() const
{
	if (options_.idle_timeout <= 0)
		return {};
	return clock::now() + std::chrono::duration_cast<clock::duration>(
				      std::chrono::duration<double>(options_.idle_timeout));
}

static int milliseconds_until(std::optional<clock::time_point> deadline)
{
	if (!deadline)
		return -1;
	const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - clock::now());
	return static_cast<int>(std::clamp<long long>(left.count(), 0, INT_MAX));
}

watcher::woken watcher::wait(int file, short events, std::optional<clock::time_point> deadline)
{
	pollfd files[] = {{signals_.get(), POLLIN, 0}, {file, events, 0}};

	for (;;) {
		const int milliseconds = milliseconds_until(deadline);
		const int count = poll(files, 2, milliseconds);

		if (count < 0 && errno != EINTR)
			throw failure("waiting failed: " + errno_text());
		if (count > 0)
			return files[0].revents ? woken::signal : woken::ready;
		if (count == 0 && milliseconds < INT_MAX)
			return woken::idle;
	}
}

int watcher::run()
{
	std::optional<clock::time_point> deadline = idle_deadline();

	for (;;) {
		// After a loss only what is there is read.
		switch (wait(receiver_.file(), POLLIN, lost_ ? clock::now() : deadline)) {
		case woken::signal:
			return exit_done;
		case woken::idle:
			if (!lost_)
				return exit_idle;
			renew();
			continue;
		case woken::ready:
			break;
		}
		const std::optional<leaf> leaf = receiver_.next();
		lost_ |= receiver_.lost();
		if (!leaf)
			continue;
		if (!handle(*leaf))
			return exit_done;
		deadline = idle_deadline();
	}
}

// False when the watch is over.
bool watcher::handle(const leaf &leaf)
{
	if (std::find(options_.leaves.begin(), options_.leaves.end(), leaf) ==
	    options_.leaves.end()) {
		drop_stray(leaf);
		return true;
	}
	const int code = print(leaf);
	if (options_.answer) {
		drv_intr_ioctl_para para = enable_para(leaf);

		device_.command(DRV_INTR_IOC_SET_INT_EN, para, leaf.name() + ": enabling",
				"has its combiner gone?");
	}
	if (code != 0 && code != EINTR)
		throw failure(std::string("standard output: ") + std::strerror(code));
	return code == 0 && events_ != options_.num_events;
}

// Nobody reads such messages any more, and each leaves the leaf disabled.
void watcher::drop_stray(const leaf &leaf)
{
	drv_intr_ioctl_para para = para_with_port(leaf);

	complain(leaf.name() + ": subscribed by somebody else for this port, " +
		 std::to_string(receiver_.port()) + "; unsubscribed and enabled");
	(void)device_.try_command(DRV_INTR_IOC_UNSET_PID, para);
	para = enable_para(leaf);
	(void)device_.try_command(DRV_INTR_IOC_SET_INT_EN, para);
}

// 0, EINTR when a signal came while the output was blocked, or another errno.
int watcher::print(const leaf &leaf)
{
	char line[128];
	const char *format = options_.json ? "{\"index_id\":%u,\"type\":%u,\"n\":%u}\n"
					   : "index_id=0x%x type=%u n=%u\n";
	const size_t length = static_cast<size_t>(
		std::snprintf(line, sizeof(line), format, leaf.index_id, leaf.type, events_ + 1));

	for (size_t done = 0; done < length;) {
		if (wait(STDOUT_FILENO, POLLOUT, {}) == woken::signal)
			return EINTR;
		const ssize_t count = write(STDOUT_FILENO, line + done, length - done);
		if (count < 0 && errno != EAGAIN && errno != EINTR)
			return errno;
		done += count < 0 ? 0 : static_cast<size_t>(count);
	}
	events_++;
	return 0;
}

// Unsubscribed first, so that no message can follow the last one read. A leaf that
// nobody uses any more cannot be enabled, and need not be.
bool watcher::end()
{
	bool complete = true;

	for (const leaf &leaf : subscribed_) {
		drv_intr_ioctl_para para = para_with_port(leaf);

		if (device_.try_command(DRV_INTR_IOC_UNSET_PID, para) == 0)
			continue;
		complain(leaf.name() + ": the subscription had ended before; "
				       "/proc/diag/log has the reason");
		complete = false;
	}
	while (const std::optional<leaf> leaf = options_.answer ? receiver_.next() : std::nullopt) {
		drv_intr_ioctl_para para = enable_para(*leaf);

		(void)device_.try_command(DRV_INTR_IOC_SET_INT_EN, para);
	}
	return complete;
}

} // namespace

int watch(control_device &device, const watch_options &options)
{
	watcher watcher(device, options);
	int code;

	try {
		watcher.subscribe();
		code = watcher.run();
	} catch (const failure &error) {
		complain(error.what());
		code = exit_failed;
	}
	return watcher.end() ? code : exit_failed;
}

} // namespace intrctl
