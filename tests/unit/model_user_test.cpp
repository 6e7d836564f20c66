// SPDX-License-Identifier: GPL-2.0
//
// The kernel model's side towards processes: it stops where a driver would harm
// a kernel. That it does what a kernel does is shown by the scenarios, which run
// on both.
#include <atomic>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "model_rig.h"
#include "platform/kernel_api.h"

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

constexpr u32 PROTOCOL = 17;
constexpr int NONBLOCK = 0x40;

class ModelUser : public testing::Test {
protected:
	void SetUp() override
	{
		host_start();
		stops.take();
	}
	void TearDown() override
	{
		host_set_bug_handler(nullptr);
		host_stop();
	}
};

std::function<long(unsigned int, unsigned long)> on_ioctl;
plat_misc_device control = {
	.name = "control",
	.open = [](inode *, file *) { return 0; },
	.release = [](inode *, file *) { return 0; },
	.ioctl = [](file *, unsigned int cmd, unsigned long arg) { return on_ioctl(cmd, arg); },
	.storage = {},
};

// Proc files.

std::string shown; // by every file
std::function<void()> in_show;

int show(seq_file *seq, void *)
{
	if (in_show)
		in_show();
	plat_seq_puts(seq, shown.c_str());
	return 0;
}

plat_proc_ops readable = {
	.open = [](inode *, file *file) { return plat_single_open(file, show, nullptr); },
	.write = nullptr,
	.storage = {},
};

proc_dir_entry *directory;
char storage_of_another;
proc_dir_entry &other_module = reinterpret_cast<proc_dir_entry &>(storage_of_another);

std::string read(int handle, size_t size)
{
	std::string text(size, '\0');
	const long done = host_proc_read(handle, text.data(), size);

	return done < 0 ? std::to_string(done) : text.substr(0, static_cast<size_t>(done));
}

class ModelProc : public ModelUser {
protected:
	void SetUp() override
	{
		ModelUser::SetUp();
		shown.clear();
		in_show = nullptr;
		directory = plat_proc_mkdir("intr", &other_module);
		ASSERT_NE(plat_proc_create_data("text", 0444, directory, &readable, nullptr),
			  nullptr);
		ASSERT_NE(plat_proc_create_data("value", 0644, directory, &readable, nullptr),
			  nullptr);
	}
	void TearDown() override
	{
		plat_proc_remove(directory);
		ModelUser::TearDown();
	}
};

TEST_F(ModelProc, removal_waits_for_calls_and_shuts_out_open_files)
{
	gate showing;
	std::atomic<bool> shown_all = false;
	const int handle = host_proc_open("intr/text", 0);
	const int idle = host_proc_open("intr/value", 1);

	shown = "text";
	in_show = [&] {
		showing.pass();
		EXPECT_TRUE(eventually([] { return host_calls("plat_proc_remove") == 1; }));
		std::this_thread::sleep_for(std::chrono::milliseconds(
			2)); // a removal that does not wait is through by then
		shown_all = true;
	};
	std::thread reader([&] { EXPECT_EQ(read(handle, 10), "text"); });
	ASSERT_TRUE(showing.reached());
	showing.open();
	plat_proc_remove(std::exchange(directory, nullptr));
	EXPECT_TRUE(shown_all);
	reader.join();
	EXPECT_EQ(read(handle, 10), "-5");
	EXPECT_EQ(host_proc_write(idle, "a", 1), -5);
	EXPECT_EQ(host_proc_seek(handle, 0), -22);
	EXPECT_EQ(host_proc_open("intr/text", 0), -2);
	EXPECT_EQ(host_proc_close(handle), 0);
	EXPECT_EQ(host_proc_close(idle), 0);
}

// Netlink.

sk_buff *make_message(const std::string &payload)
{
	const u32 size = static_cast<u32>(payload.size());
	sk_buff *message = plat_nlmsg_new(size);
	void *at = plat_nlmsg_put(message, 7, 8, 9, size, 10);

	memcpy(at, payload.data(), payload.size());
	return message;
}

int send(sock *socket, const std::string &payload, u32 port, int nonblock = NONBLOCK)
{
	return plat_netlink_unicast(socket, make_message(payload), port, nonblock);
}

sock *open_socket;
int open_port;

// Fills the port.
void fill(sock *socket, u32 port)
{
	while (send(socket, "x", port) > 0)
		continue;
}

const misuse harmful[] = {
	{"'intr' already registered",
	 [] { EXPECT_EQ(plat_proc_mkdir("intr", &other_module), nullptr); }},
	{"'intr/text' already registered",
	 [] {
		 EXPECT_EQ(plat_proc_create_data("text", 0444, directory, &readable, nullptr),
			   nullptr);
	 }},
	{"proc_remove",
	 [] {
		 proc_dir_entry *gone = plat_proc_mkdir("gone", directory);
		 plat_proc_remove(gone);
		 plat_proc_remove(gone);
	 }},
	{"show of a proc file returned with a lock held",
	 [] {
		 const int handle = host_proc_open("intr/text", 0);
		 in_show = plat_local_irq_disable;
		 read(handle, 10);
		 in_show = nullptr;
		 plat_local_irq_enable();
		 host_proc_close(handle);
	 }},
	{"copy_from_user: sleeping function",
	 [] {
		 char byte;
		 plat_local_irq_disable();
		 EXPECT_EQ(plat_copy_from_user(&byte, &byte, 1), 1ul);
		 plat_local_irq_enable();
	 }},
	{"control is not registered", [] { plat_misc_deregister(&control); }},
	{"goes with 1 open files",
	 [] {
		 EXPECT_EQ(plat_misc_register(&control), 0);
		 const int handle = host_misc_open("control");
		 plat_misc_deregister(&control);
		 host_misc_close(handle);
	 }},
	{"ioctl returned with a lock held",
	 [] {
		 EXPECT_EQ(plat_misc_register(&control), 0);
		 const int handle = host_misc_open("control");
		 on_ioctl = [](unsigned int, unsigned long) -> long {
			 return plat_srcu_read_lock();
		 };
		 plat_srcu_read_unlock(static_cast<int>(host_misc_ioctl(handle, 0, nullptr)));
		 host_misc_close(handle);
		 plat_misc_deregister(&control);
	 }},
	{"through no socket", [] { EXPECT_EQ(send(nullptr, "x", 1), -111); }},
	{"through a released socket",
	 [] {
		 sock *released = plat_netlink_kernel_create(PROTOCOL + 1);
		 plat_netlink_kernel_release(released);
		 send(released, "x", 1);
	 }},
	{"one that was sent or freed",
	 [] {
		 sk_buff *message = make_message("x");
		 plat_netlink_unicast(open_socket, message, 1, NONBLOCK);
		 plat_nlmsg_free(message);
	 }},
	{"netlink_unicast: sleeping function",
	 [] {
		 fill(open_socket, host_netlink_port(open_port));
		 plat_local_irq_disable();
		 EXPECT_EQ(send(open_socket, "x", host_netlink_port(open_port), 0), -11);
		 plat_local_irq_enable();
	 }},
	{"8 left behind: open file \"intr/text\" misc device \"control\" proc entry \"intr\" "
	 "proc entry \"intr/text\" proc entry \"intr/value\" netlink message of 20 bytes "
	 "netlink socket of protocol 17 open netlink port ",
	 [] {
		 const int handle = host_proc_open("intr/text", 0);
		 EXPECT_EQ(plat_misc_register(&control), 0);
		 sk_buff *message = make_message("x");
		 host_check_leftovers();
		 plat_nlmsg_free(message);
		 plat_misc_deregister(&control);
		 host_proc_close(handle);
	 }},
};

TEST_F(ModelProc, what_would_harm_a_kernel_stops_loudly)
{
	open_socket = plat_netlink_kernel_create(PROTOCOL);
	open_port = host_netlink_open(PROTOCOL, 1);
	expect_each_stops(harmful);
	plat_netlink_kernel_release(open_socket);
	EXPECT_EQ(host_netlink_close(open_port), 0);
}

// A sender that may not wait stops in the middle of its call: there the socket is
// released under it.
TEST_F(ModelUser, netlink_socket_released_under_a_sender_stops_loudly)
{
	open_socket = plat_netlink_kernel_create(PROTOCOL);
	const int handle = host_netlink_open(PROTOCOL, 1);

	fill(open_socket, host_netlink_port(handle));
	host_set_bug_handler([](const char *text) {
		stops.add(text);
		plat_local_irq_enable();
		plat_netlink_kernel_release(std::exchange(open_socket, nullptr));
	});
	plat_local_irq_disable();
	send(open_socket, "x", host_netlink_port(handle), 0);
	EXPECT_EQ(host_netlink_close(handle), 0);
	EXPECT_THAT(stops.take(), ElementsAre(HasSubstr("sleeping function"),
					      HasSubstr("being sent through the socket")));
}

} // namespace
