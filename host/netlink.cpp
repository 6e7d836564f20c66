// SPDX-License-Identifier: GPL-2.0
//
// Netlink. A sender looks up the receiver's port and queues the message there;
// it takes no lock but that of the receiver's queue, so that senders to different
// ports are not ordered by each other.
//
// A message counts against the receive buffer with all the memory it takes. A
// port is full once the buffer is exceeded, and after a message was refused it
// stays so until it has been read empty.
//
// A closed socket's port is free before the notifiers are called, as in the kernel.
#include "internal.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <shared_mutex>
#include <unistd.h>
#include <vector>

struct sock {
	u32 protocol;
};

struct sk_buff {
	size_t room; // of data
	size_t length; // of the message in it
	unsigned char *data;
};

namespace model {

namespace {

struct header {
	u32 length;
	u16 type;
	u16 flags;
	u32 seq;
	u32 portid;
};
static_assert(sizeof(header) == 16);

// A socket of a process. Never freed while the model runs: senders look at it
// without a lock.
struct port {
	u32 protocol;
	u32 id;
	size_t buffer;
	std::mutex lock; // over what follows
	std::deque<std::string> queue;
	size_t used = 0;
	bool congested = false;
	bool closed = false;
};

} // namespace

constexpr u32 protocols = 32;
constexpr u32 most_ports = 256;
// What the kernel itself has: routing, diagnosis, audit, FIB look-up, events, generic.
constexpr u32 own_protocols = 1u << 0 | 1u << 4 | 1u << 9 | 1u << 10 | 1u << 15 | 1u << 16;

// net.core.rmem_default and rmem_max, and what a message is more than its bytes.
constexpr size_t usual_buffer = 212992;
constexpr size_t smallest_buffer = 2304;
constexpr size_t record_size = 256;
constexpr size_t trailer_size = 320;

static std::mutex sockets_lock; // over creation and release
static std::atomic<sock *> sockets[protocols];
static std::atomic<u32> senders[protocols];
static object_set messages;

// As the kernel's chain, held over the calls: whoever leaves it waits for them.
static std::shared_mutex notifiers_lock;
static std::vector<plat_netlink_notifier *> notifiers;

static std::mutex ports_lock; // over opening; handles are places in the table, from 1
static std::atomic<port *> ports[most_ports];
static u32 port_count;

static size_t align4(size_t size)
{
	return (size + 3) & ~size_t{3};
}

// Of the kernel's allocation sizes, which are powers of two this far up.
static size_t memory_of(const sk_buff &message)
{
	size_t size = 512;

	while (size < message.room + trailer_size)
		size *= 2;
	return record_size + size;
}

static bool is_message(sk_buff *message, const char *what)
{
	if (message && messages.has(message))
		return true;
	bug("%s: %p is no message, or one that was sent or freed", what,
	    static_cast<void *>(message));
	return false;
}

static void free_message(sk_buff *message)
{
	messages.remove(message);
	free(message->data);
	delete message;
}

static u32 protocol_of(const sock *wanted)
{
	u32 protocol = 0;

	while (protocol < protocols &&
	       (!wanted || sockets[protocol].load(std::memory_order_relaxed) != wanted))
		protocol++;
	return protocol;
}

static port *find_port(u32 protocol, u32 id)
{
	for (const std::atomic<port *> &slot : ports) {
		port *at = slot.load(std::memory_order_acquire);

		if (!at)
			break;
		if (at->id != id || at->protocol != protocol)
			continue;
		const std::lock_guard guard(at->lock);
		if (!at->closed)
			return at;
	}
	return nullptr;
}

// The message's length, or -EAGAIN: full now.
static int try_queue(port &receiver, const sk_buff &message, bool nonblock)
{
	const std::lock_guard guard(receiver.lock);

	if (receiver.closed)
		return -econnrefused;
	if (receiver.used > receiver.buffer || receiver.congested) {
		receiver.congested |= nonblock;
		return -eagain;
	}
	receiver.queue.emplace_back(reinterpret_cast<const char *>(message.data), message.length);
	receiver.used += memory_of(message);
	return static_cast<int>(message.length);
}

static int send(u32 protocol, const sk_buff &message, u32 portid, bool nonblock)
{
	port *receiver = portid ? find_port(protocol, portid) : nullptr;
	int ret;

	if (!receiver)
		return -econnrefused; // our own socket takes no input
	ret = try_queue(*receiver, message, nonblock);
	if (ret != -eagain || nonblock || !might_sleep("netlink_unicast"))
		return ret;
	wait_until(
		[&] {
			ret = try_queue(*receiver, message, false);
			return ret != -eagain;
		},
		"netlink_unicast to a port that is not read");
	return ret;
}

static int send_through(sock *socket, const sk_buff &message, u32 portid, bool nonblock)
{
	const u32 protocol = protocol_of(socket);

	if (protocol == protocols) {
		bug("netlink_unicast through %s", socket ? "a released socket" : "no socket");
		return -econnrefused;
	}
	senders[protocol].fetch_add(1, std::memory_order_relaxed);
	full_barrier(); // pairs with the one in the release: one of the two sees the other
	int ret = -econnrefused;
	if (sockets[protocol].load(std::memory_order_relaxed) == socket)
		ret = send(socket->protocol, message, portid, nonblock);
	else
		bug("netlink_unicast through a released socket");
	senders[protocol].fetch_sub(1, std::memory_order_relaxed);
	return ret;
}

static port *port_of(int handle)
{
	if (handle <= 0 || static_cast<u32>(handle) > most_ports)
		return nullptr;
	port *at = ports[handle - 1].load(std::memory_order_acquire);
	if (!at)
		return nullptr;
	const std::lock_guard guard(at->lock);
	return at->closed ? nullptr : at;
}

// The process's own number for its first socket, and far away from those for others.
static u32 free_id(u32 protocol)
{
	u32 id = static_cast<u32>(getpid());

	if (find_port(protocol, id))
		id = static_cast<u32>(-4096) - port_count;
	return id;
}

static size_t buffer_size(u32 wanted)
{
	if (!wanted)
		return usual_buffer;
	return std::max(2 * std::min<size_t>(wanted, usual_buffer), smallest_buffer);
}

static void notify_released(const port &closed)
{
	const std::shared_lock guard(notifiers_lock);

	for (const plat_netlink_notifier *notifier : notifiers)
		if (notifier->protocol == closed.protocol)
			notifier->released(closed.id);
}

u32 netlink_left(std::string &text)
{
	u32 left = messages.list("netlink message", text);

	for (const plat_netlink_notifier *notifier : notifiers) {
		text += " netlink notifier of protocol " + std::to_string(notifier->protocol);
		left++;
	}
	for (u32 protocol = 0; protocol < protocols; protocol++) {
		if (!sockets[protocol].load())
			continue;
		text += " netlink socket of protocol " + std::to_string(protocol);
		left++;
	}
	for (int handle = 1; handle <= static_cast<int>(most_ports); handle++) {
		if (!port_of(handle))
			continue;
		text += " open netlink port " + std::to_string(port_of(handle)->id);
		left++;
	}
	return left;
}

void netlink_reset()
{
	for (u32 protocol = 0; protocol < protocols; protocol++) {
		delete sockets[protocol].exchange(nullptr);
		senders[protocol] = 0;
	}
	for (std::atomic<port *> &slot : ports)
		delete slot.exchange(nullptr);
	port_count = 0;
	notifiers.clear();
	messages.clear(); // not freed: the leak checker names who allocated it
}

} // namespace model

using namespace model;

struct sock *plat_netlink_kernel_create(u32 protocol)
{
	long injected;

	if (fails(service::netlink_kernel_create, injected) ||
	    !might_sleep("netlink_kernel_create"))
		return nullptr;
	const std::lock_guard guard(sockets_lock);
	if (protocol >= protocols || own_protocols & 1u << protocol || sockets[protocol].load())
		return nullptr;
	auto *socket = new sock{protocol};
	sockets[protocol].store(socket, std::memory_order_relaxed);
	return socket;
}

void plat_netlink_kernel_release(struct sock *socket)
{
	count_call(service::netlink_kernel_release);
	if (!socket || !might_sleep("netlink_kernel_release"))
		return;
	const std::lock_guard guard(sockets_lock);
	const u32 protocol = protocol_of(socket);
	if (protocol == protocols) {
		bug("netlink_kernel_release: %p is no socket", static_cast<void *>(socket));
		return;
	}
	sockets[protocol].store(nullptr, std::memory_order_relaxed);
	full_barrier();
	if (senders[protocol].load(std::memory_order_relaxed))
		bug("netlink_kernel_release: a message is being sent through the socket");
	delete socket;
}

struct sk_buff *plat_nlmsg_new(size_t payload)
{
	constexpr unsigned char unwritten = 0x5a;
	long injected;

	if (fails(service::nlmsg_new, injected))
		return nullptr;
	const size_t room = align4(sizeof(header) + payload);
	auto *message = new sk_buff{room, 0, static_cast<unsigned char *>(malloc(room))};
	memset(message->data, unwritten, room);
	messages.add(message, room);
	return message;
}

void plat_nlmsg_free(struct sk_buff *message)
{
	count_call(service::nlmsg_free);
	if (message && is_message(message, "nlmsg_free"))
		free_message(message);
}

// Stricter than the kernel, which rounds up what is allocated: room for what was asked.
void *plat_nlmsg_put(struct sk_buff *message, u32 portid, u32 seq, u32 type, u32 payload, u32 flags)
{
	long injected;

	if (fails(service::nlmsg_put, injected) || !is_message(message, "nlmsg_put"))
		return nullptr;
	const size_t length = sizeof(header) + payload;
	if (message->room - message->length < align4(length))
		return nullptr;
	unsigned char *at = message->data + message->length;
	const header head = {static_cast<u32>(length), static_cast<u16>(type),
			     static_cast<u16>(flags), seq, portid};
	memcpy(at, &head, sizeof(head));
	memset(at + length, 0, align4(length) - length);
	message->length += align4(length);
	return at + sizeof(head);
}

// What a receiver gets beside the message; nobody looks at it here.
void plat_netlink_set_source(struct sk_buff *message, u32 /*portid*/, u32 /*dst_group*/)
{
	count_call(service::netlink_set_source);
	(void)is_message(message, "netlink_set_source");
}

int plat_netlink_unicast(struct sock *socket, struct sk_buff *message, u32 portid, int nonblock)
{
	long injected;
	const bool fault = fails(service::netlink_unicast, injected);

	if (!is_message(message, "netlink_unicast"))
		return -einval;
	const int ret = fault ? static_cast<int>(injected)
			      : send_through(socket, *message, portid, nonblock != 0);
	free_message(message);
	return ret;
}

int plat_netlink_register_notifier(struct plat_netlink_notifier *notifier)
{
	long injected;

	if (fails(service::netlink_register_notifier, injected))
		return static_cast<int>(injected);
	if (!might_sleep("netlink_register_notifier"))
		return -einval;
	const std::lock_guard guard(notifiers_lock);
	if (std::find(notifiers.begin(), notifiers.end(), notifier) != notifiers.end())
		return -eexist;
	notifiers.push_back(notifier);
	return 0;
}

void plat_netlink_unregister_notifier(struct plat_netlink_notifier *notifier)
{
	count_call(service::netlink_unregister_notifier);
	if (!might_sleep("netlink_unregister_notifier"))
		return;
	const std::lock_guard guard(notifiers_lock);
	if (!std::erase(notifiers, notifier))
		bug("netlink_unregister_notifier: %p is not registered",
		    static_cast<void *>(notifier));
}

int host_netlink_open(uint32_t protocol, uint32_t receive_buffer)
{
	const std::lock_guard guard(ports_lock);

	if (port_count == most_ports)
		bug("more than %u netlink ports were opened since the start", most_ports);
	if (protocol >= protocols || port_count == most_ports)
		return -eprotonosupport;
	{
		const std::lock_guard sockets_guard(sockets_lock);

		if (!sockets[protocol].load() || !module_get())
			return -eprotonosupport;
	}
	auto *opened = new port{};
	opened->protocol = protocol;
	opened->id = free_id(protocol);
	opened->buffer = buffer_size(receive_buffer);
	ports[port_count].store(opened, std::memory_order_release);
	return static_cast<int>(++port_count);
}

uint32_t host_netlink_port(int handle)
{
	const port *at = port_of(handle);

	return at ? at->id : 0;
}

static long receive(port &from, void *buffer, size_t size)
{
	const std::lock_guard guard(from.lock);

	if (from.queue.empty())
		return -eagain;
	const std::string message = std::move(from.queue.front());
	const size_t length = std::min(size, message.size());
	from.queue.pop_front();
	memcpy(buffer, message.data(), length);
	from.used -= memory_of({message.size(), 0, nullptr});
	if (from.queue.empty())
		from.congested = false;
	return static_cast<long>(length);
}

long host_netlink_receive(int handle, void *buffer, size_t size, uint32_t timeout_ms)
{
	const auto deadline =
		std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
	port *from = port_of(handle);

	if (!from)
		return -ebadf;
	for (;;) {
		const long ret = receive(*from, buffer, size);

		if (ret != -eagain || std::chrono::steady_clock::now() >= deadline)
			return ret;
		std::this_thread::sleep_for(std::chrono::microseconds(100));
	}
}

int host_netlink_close(int handle)
{
	port *closing = port_of(handle);

	if (!closing)
		return -ebadf;
	{
		const std::lock_guard guard(closing->lock);
		closing->closed = true;
		closing->queue.clear();
	}
	{
		const process_call call("close of a netlink socket");

		notify_released(*closing);
	}
	module_put();
	return 0;
}
