// SPDX-License-Identifier: GPL-2.0
//
// The kernel model's side towards processes, and what else it has of devices:
// user memory, the control device, proc files, netlink, GPIO pins, drivers by
// name. What is expected is what the kernel does.
#include <algorithm>
#include <atomic>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <sys/mman.h>

#include "model_rig.h"
#include "platform/kernel_api.h"

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

constexpr size_t PAGE = 4096;
constexpr u32 PROTOCOL = 17;
constexpr int NONBLOCK = 0x40;

// Two pages; the second can be made inaccessible, and is at first.
class page_and_hole {
public:
	page_and_hole()
		: area_(static_cast<char *>(
			  mmap(nullptr, 2 * PAGE, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)))
	{
		mprotect(area_, PAGE, PROT_READ | PROT_WRITE);
	}
	~page_and_hole() { munmap(area_, 2 * PAGE); }
	page_and_hole(const page_and_hole &) = delete;
	page_and_hole &operator=(const page_and_hole &) = delete;

	char *hole() { return area_ + PAGE; }
	void protect_hole(int protection) { mprotect(hole(), PAGE, protection); }

private:
	char *area_;
};

class User : public testing::Test {
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

TEST_F(User, copies_end_at_the_first_bad_page_and_say_what_is_missing)
{
	page_and_hole pages;
	char *const last = pages.hole() - 6;
	std::vector<char> kernel(2 * PAGE, 'k');

	EXPECT_EQ(plat_copy_to_user(last, "ABCDEFGH", 8), 2ul);
	EXPECT_EQ(std::string(last, 6), "ABCDEF");
	EXPECT_EQ(plat_copy_from_user(kernel.data(), last, 8), 2ul);
	EXPECT_EQ(std::string(kernel.data(), 9), std::string("ABCDEF\0\0k", 9)) << "rest is zero";
	EXPECT_EQ(plat_copy_from_user(kernel.data(), nullptr, 4), 4ul);
	EXPECT_EQ(plat_copy_to_user(reinterpret_cast<void *>(~0ul - 3), "abcdefgh", 8), 8ul);

	pages.protect_hole(PROT_READ);
	EXPECT_EQ(plat_copy_from_user(kernel.data(), last, PAGE), 0ul);
	EXPECT_EQ(plat_copy_to_user(last, kernel.data(), PAGE), PAGE - 6);

	host_fault("plat_copy_to_user", 1, 3);
	EXPECT_EQ(plat_copy_to_user(last, "x", 1), 3ul);
	EXPECT_EQ(plat_copy_to_user(last, "x", 1), 0ul) << "no bytes of a failed copy stay behind";
	EXPECT_EQ(*last, 'x');
}

// The control device and the module.

std::function<long(unsigned int, unsigned long)> on_ioctl;
std::vector<std::string> calls;
int open_result;

plat_misc_device control = {
	.name = "control",
	.open =
		[](inode *, file *) {
			calls.push_back("open");
			return open_result;
		},
	.release =
		[](inode *, file *) {
			calls.push_back("release");
			return 0;
		},
	.ioctl = [](file *, unsigned int cmd, unsigned long arg) { return on_ioctl(cmd, arg); },
	.storage = {},
};

int start_with_device()
{
	return plat_misc_register(&control);
}

void stop_with_device()
{
	EXPECT_EQ(host_misc_open("control"), -19) << "nothing comes in while the module goes";
	plat_misc_deregister(&control);
}

TEST_F(User, device_holds_the_module_until_its_last_file_is_closed)
{
	calls.clear();
	on_ioctl = [](unsigned int cmd, unsigned long arg) { return cmd + static_cast<long>(arg); };
	ASSERT_EQ(host_module_load(start_with_device), 0);
	plat_misc_device same = control;
	EXPECT_EQ(plat_misc_register(&same), -17);

	open_result = -13;
	EXPECT_EQ(host_misc_open("control"), -13);
	open_result = 0;
	const int first = host_misc_open("control"), second = host_misc_open("control");
	EXPECT_EQ(host_misc_ioctl(first, 40, reinterpret_cast<void *>(2)), 42);
	EXPECT_EQ(host_misc_close(first), 0);
	EXPECT_EQ(host_misc_ioctl(first, 40, nullptr), -9);
	EXPECT_EQ(host_module_unload(stop_with_device), -11);
	EXPECT_EQ(host_misc_close(second), 0);
	EXPECT_EQ(host_module_unload(stop_with_device), 0);
	EXPECT_THAT(calls, ElementsAre("open", "open", "open", "release", "release"));
}

std::atomic<int> opened_in_start;

TEST_F(User, start_that_fails_waits_for_the_files_opened_meanwhile)
{
	std::atomic<bool> closing = false;

	opened_in_start = 0;
	open_result = 0;
	on_ioctl = [](unsigned int, unsigned long) { return 7l; };
	std::thread loader([&] {
		EXPECT_EQ(host_module_load([] {
				  EXPECT_EQ(plat_misc_register(&control), 0);
				  opened_in_start = host_misc_open("control");
				  plat_misc_deregister(&control);
				  return -5;
			  }),
			  -5);
		EXPECT_TRUE(closing);
	});
	// The device is going or gone, and its open file is served.
	EXPECT_TRUE(eventually(
		[] { return opened_in_start > 0 && host_calls("plat_misc_deregister") == 1; }));
	EXPECT_EQ(host_misc_ioctl(opened_in_start, 0, nullptr), 7);
	closing = true;
	EXPECT_EQ(host_misc_close(opened_in_start), 0);
	loader.join();
}

// Proc files.

std::string shown; // by every file
int show_result;
int renderings;
std::function<void()> in_show;

int show(seq_file *seq, void *)
{
	renderings++;
	if (in_show)
		in_show();
	for (size_t at = 0; at < shown.size(); at += 100)
		plat_seq_puts(seq, shown.substr(at, 100).c_str());
	return show_result;
}

plat_proc_ops readable = {
	.open = [](inode *, file *file) { return plat_single_open(file, show, nullptr); },
	.write = nullptr,
	.storage = {},
};

// Takes over what is written, at most 8 bytes of it.
plat_proc_ops writable = {
	.open = readable.open,
	.write =
		[](file *, const char *user, size_t count, long long *position) {
			char text[8];
			const size_t size = std::min(count, sizeof(text));

			if (plat_copy_from_user(text, user, size))
				return -14l;
			shown.assign(text, size);
			*position += static_cast<long long>(size);
			return static_cast<long>(size);
		},
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

class Proc : public User {
protected:
	void SetUp() override
	{
		User::SetUp();
		shown.clear();
		show_result = 0;
		renderings = 0;
		in_show = nullptr;
		directory = plat_proc_mkdir("intr", &other_module);
		ASSERT_NE(plat_proc_create_data("text", 0444, directory, &readable, nullptr),
			  nullptr);
		ASSERT_NE(plat_proc_create_data("value", 0644, directory, &writable, nullptr),
			  nullptr);
	}
	void TearDown() override
	{
		plat_proc_remove(directory);
		User::TearDown();
	}

	static std::string digits(size_t size)
	{
		std::string text;

		for (size_t at = 0; text.size() < size; at++)
			text += std::to_string(at) + " ";
		return text.substr(0, size);
	}
};

TEST_F(Proc, text_is_rendered_once_into_a_buffer_that_holds_it)
{
	const struct {
		size_t size;
		int renderings;
	} rows[] = {{4095, 1}, {4096, 2}, {8191, 2}, {8192, 3}, {60000, 5}};

	for (const auto &row : rows) {
		SCOPED_TRACE(row.size);
		const int handle = host_proc_open("intr/text", 0);
		const std::string text = shown = digits(row.size);
		renderings = 0;
		const std::string start = read(handle, 10);
		shown = "changed";
		EXPECT_EQ(start + read(handle, 100000), text);
		EXPECT_EQ(read(handle, 10), "");
		EXPECT_EQ(renderings, row.renderings);
		EXPECT_EQ(host_proc_close(handle), 0);
	}
}

TEST_F(Proc, seek_elsewhere_renders_anew)
{
	const int handle = host_proc_open("intr/text", 0);

	shown = digits(6000);
	EXPECT_EQ(read(handle, 100), shown.substr(0, 100));
	renderings = 0;
	EXPECT_EQ(host_proc_seek(handle, 100), 100);
	EXPECT_EQ(renderings, 0) << "where the last read ended";
	EXPECT_EQ(host_proc_seek(handle, 5990), 5990);
	EXPECT_EQ(read(handle, 100), shown.substr(5990));
	EXPECT_EQ(renderings, 1);
	shown = "new";
	EXPECT_EQ(host_proc_seek(handle, 1), 1);
	EXPECT_EQ(read(handle, 100), "ew");

	show_result = -12;
	EXPECT_EQ(host_proc_seek(handle, 2), -12);
	EXPECT_EQ(read(handle, 100), "-12");
	show_result = 0;
	EXPECT_EQ(read(handle, 100), "new") << "from the start again";
	EXPECT_EQ(host_proc_close(handle), 0);
}

TEST_F(Proc, reads_lose_nothing_at_bad_user_memory)
{
	page_and_hole pages;
	const int handle = host_proc_open("intr/value", 1);

	shown = "0123456789";
	EXPECT_EQ(host_proc_read(handle, pages.hole() - 4, 8), 4);
	EXPECT_EQ(host_proc_read(handle, pages.hole(), 8), -14);
	EXPECT_EQ(read(handle, 8), "456789");
	EXPECT_EQ(host_proc_write(handle, "abcdefghij", 10), 8) << "what the driver says it took";
	EXPECT_EQ(host_proc_seek(handle, 0), 0);
	EXPECT_EQ(read(handle, 100), "abcdefgh");
	host_fault("plat_single_open", 1, -12);
	EXPECT_EQ(host_proc_open("intr/text", 0), -12);
	EXPECT_EQ(host_proc_close(handle), 0);
}

TEST_F(Proc, removal_waits_for_calls_and_shuts_out_open_files)
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
	EXPECT_EQ(renderings, 1);
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

std::string receive(int handle)
{
	char text[64];
	const long size = host_netlink_receive(handle, text, sizeof(text), 0);

	return size < 0 ? std::to_string(size) : std::string(text, static_cast<size_t>(size));
}

TEST_F(User, netlink_messages_arrive_in_order_at_their_port_or_not_at_all)
{
	for (const u32 taken : {0u, 16u, 32u, ~0u})
		EXPECT_EQ(plat_netlink_kernel_create(taken), nullptr) << taken;
	sock *socket = plat_netlink_kernel_create(PROTOCOL);
	EXPECT_EQ(plat_netlink_kernel_create(PROTOCOL), nullptr);

	const int first = host_netlink_open(PROTOCOL, 0), second = host_netlink_open(PROTOCOL, 0);
	const u32 port = host_netlink_port(first);
	EXPECT_EQ(send(socket, "12345678", port), 24);
	EXPECT_EQ(send(socket, "abc", port), 20) << "padded";
	const u8 header[] = {24, 0, 0, 0, 9, 0, 10, 0, 8, 0, 0, 0, 7, 0, 0, 0};
	EXPECT_EQ(receive(first),
		  std::string(reinterpret_cast<const char *>(header), 16) + "12345678");
	EXPECT_EQ(receive(first).substr(16), std::string("abc\0", 4));
	EXPECT_EQ(receive(second), "-11");
	EXPECT_EQ(send(socket, "x", 0), -111) << "the kernel's own socket takes nothing";
	host_fault("plat_netlink_unicast", 1, -105);
	EXPECT_EQ(send(socket, "x", port), -105);
	EXPECT_EQ(receive(first), "-11");
	sk_buff *small = plat_nlmsg_new(8);
	EXPECT_EQ(plat_nlmsg_put(small, 0, 0, 0, 9, 0), nullptr);
	plat_nlmsg_free(small);
	EXPECT_EQ(host_netlink_close(first), 0);
	EXPECT_EQ(host_netlink_close(second), 0);
	plat_netlink_kernel_release(socket);
}

TEST_F(User, netlink_port_that_was_too_full_takes_nothing_until_it_is_empty)
{
	sock *socket = plat_netlink_kernel_create(PROTOCOL);
	const int handle = host_netlink_open(PROTOCOL, 1);
	const u32 port = host_netlink_port(handle);
	int taken = 0;

	while (send(socket, "x", port) > 0)
		taken++;
	EXPECT_EQ(taken, 4) << "768 bytes each, until 2304 are exceeded";
	for (; taken; taken--) {
		EXPECT_EQ(send(socket, "x", port), -11);
		EXPECT_NE(receive(handle), "-11");
	}
	EXPECT_GT(send(socket, "x", port), 0);

	// A sender that may wait goes on when there is room.
	for (taken = 1; taken < 4; taken++)
		send(socket, "x", port);
	std::thread sender([&] { EXPECT_GT(send(socket, "last", port, 0), 0); });
	for (std::string got; got.find("last") == std::string::npos;)
		got = receive(handle);
	sender.join();
	EXPECT_EQ(host_netlink_close(handle), 0);
	plat_netlink_kernel_release(socket);
}

// Lines and drivers.

u32 pin_virq;
std::atomic<u32> pin_interrupts;

TEST_F(User, gpio_pin_interrupts_through_a_chip_without_end_of_interrupt)
{
	ASSERT_EQ(host_gpio_map(400, 32), 0);
	ASSERT_EQ(host_gpio_map(401, HOST_LINES), 0); // a pin without an interrupt
	EXPECT_EQ(plat_gpio_to_desc(399), nullptr);
	EXPECT_EQ(plat_gpiod_to_irq(nullptr), -22);
	EXPECT_EQ(plat_gpiod_to_irq(plat_gpio_to_desc(401)), -6);
	pin_virq = host_line_virq(32);
	ASSERT_EQ(plat_gpiod_to_irq(plat_gpio_to_desc(400)), static_cast<int>(pin_virq));

	// Raised in its own handler, it comes again after it and not beside it.
	pin_interrupts = 0;
	plat___irq_set_handler(
		pin_virq,
		[](irq_desc *desc) {
			static std::atomic<u32> inside;
			irq_chip *chip =
				plat_irq_data_get_irq_chip(plat_irq_get_irq_data(pin_virq));

			EXPECT_EQ(++inside, 1u);
			plat_chained_irq_enter(chip, desc);
			EXPECT_TRUE(host_line_masked(32)) << "entering masks";
			if (++pin_interrupts < 3)
				host_line_set_pending(32, 1);
			plat_chained_irq_exit(chip, desc);
			std::this_thread::sleep_for(std::chrono::milliseconds(2));
			inside--;
		},
		1, nullptr);
	host_line_set_pending(32, 1);
	EXPECT_EQ(host_wait_idle(10000), 0);
	EXPECT_EQ(pin_interrupts, 3u);

	plat_irq_modify_status(pin_virq, 0, 1ul << 19); // IRQ_DISABLE_UNLAZY
	plat_disable_irq_nosync(pin_virq);
	host_line_set_pending(32, 1);
	EXPECT_EQ(host_wait_idle(10000), 0);
	EXPECT_EQ(pin_interrupts, 3u) << "kept while masked";
	plat_enable_irq(pin_virq);
	EXPECT_EQ(host_wait_idle(10000), 0);
	EXPECT_EQ(pin_interrupts, 4u);
	plat___irq_set_handler(pin_virq, nullptr, 1, nullptr);
}

std::vector<std::string> bus_calls;

plat_platform_driver make_driver()
{
	plat_platform_driver driver = {};

	driver.name = "irq_combiner";
	driver.probe = [](platform_device *device) {
		const int irq = plat_platform_get_irq(device, 0);
		bus_calls.push_back(std::string("probe ") + plat_platform_device_name(device) +
				    (plat_dev_fwnode(device) ? " node" : "") +
				    (irq == -6 ? " without interrupt" : ""));
		return irq > 0 ? 0 : -14;
	};
	driver.remove = [](platform_device *device) {
		bus_calls.push_back(std::string("remove ") + plat_platform_device_name(device));
		return 0;
	};
	return driver;
}

// A driver whose name is taken registers under its second one, with no complaint.
TEST_F(User, drivers_get_the_devices_that_match_in_their_order)
{
	plat_platform_driver tree = make_driver(), acpi = make_driver(), third = make_driver();
	tree.of_compatible = "a,b";
	acpi.acpi_id = "NETB0009";
	acpi.second_name = third.second_name = "irq_combiner-acpi";
	const u32 virqs[] = {host_line_virq(0)};
	bus_calls.clear();
	host_device_add("NETB0009:00", "acpi:NETB0009", virqs, 1);
	host_device_add("tree", "a,b", virqs, 1);
	host_device_add("NETB0010:00", "acpi:NETB0010", virqs, 1);
	host_device_add("bad", "a,b", virqs, 0);
	ASSERT_EQ(plat_platform_driver_register(&tree), 0);
	ASSERT_EQ(plat_platform_driver_register(&acpi), 0);
	host_device_add("added", nullptr, virqs, 1);
	EXPECT_THAT(bus_calls, ElementsAre("probe tree node", "probe bad node without interrupt",
					   "probe NETB0009:00 node", "probe added"));
	EXPECT_EQ(plat_platform_driver_register(&third), -16);
	char *log = host_kernel_log();
	EXPECT_THAT(log, HasSubstr("Driver 'irq_combiner-acpi' is already registered"));
	EXPECT_THAT(log, testing::Not(HasSubstr("Driver 'irq_combiner' is already")));
	free(log);

	bus_calls.clear();
	EXPECT_EQ(host_device_unbind("irq_combiner", "NETB0009:00"), -19) << "another driver's";
	EXPECT_EQ(host_device_bind("irq_combiner", "bad"), -14) << "what its probe said";
	EXPECT_EQ(host_device_unbind("irq_combiner-acpi", "NETB0009:00"), 0);
	EXPECT_EQ(host_device_bind("irq_combiner", "NETB0009:00"), -19) << "does not match";
	plat_platform_driver_unregister(&acpi);
	plat_platform_driver_unregister(&tree);
	EXPECT_THAT(bus_calls, ElementsAre("probe bad node without interrupt", "remove NETB0009:00",
					   "remove added", "remove tree"));
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

TEST_F(Proc, what_would_harm_a_kernel_stops_loudly)
{
	open_result = 0;
	open_socket = plat_netlink_kernel_create(PROTOCOL);
	open_port = host_netlink_open(PROTOCOL, 1);
	expect_each_stops(harmful);
	plat_netlink_kernel_release(open_socket);
	EXPECT_EQ(host_netlink_close(open_port), 0);
}

// A sender that may not wait stops in the middle of its call: there the socket is
// released under it.
TEST_F(User, netlink_socket_released_under_a_sender_stops_loudly)
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
