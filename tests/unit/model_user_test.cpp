// SPDX-License-Identifier: GPL-2.0
//
// The kernel model's side towards processes, and what else it has of devices:
// user memory, the control device, proc files, netlink, GPIO pins, drivers by
// name. What is expected is what the kernel does.
#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>

#include "model.h"
#include "platform/kernel_api.h"

using testing::AnyOf;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

constexpr size_t PAGE = 4096;
constexpr u32 PROTOCOL = 17;
constexpr int NONBLOCK = 0x40;

std::vector<std::string> stops;

void note_stop(const char *text)
{
	stops.push_back(text);
}

std::vector<std::string> take_stops()
{
	return std::exchange(stops, {});
}

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
		take_stops();
	}
	void TearDown() override
	{
		host_set_stop_handler(nullptr);
		host_stop();
	}
};

TEST_F(User, copies_end_at_the_first_bad_page_and_say_what_is_missing)
{
	page_and_hole pages;
	char *const last = pages.hole() - 6;
	std::vector<char> kernel(2 * PAGE, 'k');

	EXPECT_EQ(plat_copy_to_user(last, "abcdefgh", 6), 0ul);
	EXPECT_EQ(plat_copy_to_user(last, "ABCDEFGH", 8), 2ul);
	EXPECT_EQ(std::string(last, 6), "ABCDEF");
	EXPECT_EQ(plat_copy_from_user(kernel.data(), last, 8), 2ul);
	EXPECT_EQ(std::string(kernel.data(), 9), std::string("ABCDEF\0\0k", 9)) << "rest is zero";
	EXPECT_EQ(plat_copy_from_user(kernel.data(), pages.hole(), 4), 4ul);
	EXPECT_EQ(plat_copy_from_user(kernel.data(), nullptr, 4), 4ul);
	EXPECT_EQ(plat_copy_to_user(reinterpret_cast<void *>(~0ul - 3), "abcdefgh", 8), 8ul);
	EXPECT_EQ(plat_copy_to_user(nullptr, nullptr, 0), 0ul);

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

TEST_F(User, device_reaches_its_driver_and_holds_the_module)
{
	calls.clear();
	open_result = 0;
	on_ioctl = [](unsigned int cmd, unsigned long arg) { return cmd + static_cast<long>(arg); };
	EXPECT_EQ(host_misc_open("control"), -2);
	ASSERT_EQ(host_module_load(start_with_device), 0);
	EXPECT_EQ(host_module_load(start_with_device), -17);
	plat_misc_device same = control;
	EXPECT_EQ(plat_misc_register(&same), -17);

	open_result = -13;
	EXPECT_EQ(host_misc_open("control"), -13);
	open_result = 0;
	const int first = host_misc_open("control"), second = host_misc_open("control");
	EXPECT_EQ(host_misc_ioctl(first, 40, reinterpret_cast<void *>(2)), 42);
	EXPECT_EQ(host_module_unload(stop_with_device), -11);
	EXPECT_EQ(host_misc_close(first), 0);
	EXPECT_EQ(host_misc_close(first), -9);
	EXPECT_EQ(host_misc_ioctl(first, 40, nullptr), -9);
	EXPECT_EQ(host_module_unload(stop_with_device), -11);
	EXPECT_EQ(host_misc_close(second), 0);
	EXPECT_EQ(host_module_unload(stop_with_device), 0);
	EXPECT_EQ(host_module_unload(stop_with_device), -2);
	EXPECT_THAT(calls, ElementsAre("open", "open", "open", "release", "release"));
}

int opened_in_start;

TEST_F(User, start_that_fails_waits_for_the_files_opened_meanwhile)
{
	static std::atomic<bool> returned;
	returned = false;
	open_result = 0;
	on_ioctl = [](unsigned int, unsigned long) { return 7l; };
	std::thread loader([] {
		EXPECT_EQ(host_module_load([] {
				  EXPECT_EQ(plat_misc_register(&control), 0);
				  opened_in_start = host_misc_open("control");
				  plat_misc_deregister(&control);
				  return -5;
			  }),
			  -5);
		returned = true;
	});
	std::this_thread::sleep_for(std::chrono::milliseconds(20));
	EXPECT_FALSE(returned);
	EXPECT_EQ(host_misc_ioctl(1, 0, nullptr), 7) << "still served";
	EXPECT_EQ(host_misc_close(1), 0);
	loader.join();
	EXPECT_EQ(opened_in_start, 1);
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

class Proc : public User {
protected:
	void SetUp() override
	{
		User::SetUp();
		shown.clear();
		show_result = 0;
		renderings = 0;
		in_show = nullptr;
		directory_ = plat_proc_mkdir("intr", &other_module_);
		ASSERT_NE(plat_proc_create_data("text", 0444, directory_, &readable, nullptr),
			  nullptr);
		ASSERT_NE(plat_proc_create_data("value", 0644, directory_, &writable, nullptr),
			  nullptr);
	}
	void TearDown() override
	{
		plat_proc_remove(directory_);
		User::TearDown();
	}

	static std::string read(int handle, size_t size)
	{
		std::string text(size, '\0');
		const long done = host_proc_read(handle, text.data(), size);

		return done < 0 ? std::to_string(done) : text.substr(0, static_cast<size_t>(done));
	}
	static std::string digits(size_t size)
	{
		std::string text;

		for (size_t at = 0; text.size() < size; at++)
			text += std::to_string(at) + " ";
		return text.substr(0, size);
	}

	char storage_ = 0;
	proc_dir_entry &other_module_ = reinterpret_cast<proc_dir_entry &>(storage_);
	proc_dir_entry *directory_ = nullptr;
};

TEST_F(Proc, text_is_rendered_once_and_served_in_pieces)
{
	const int handle = host_proc_open("intr/text", 0);

	shown = digits(1000);
	EXPECT_EQ(renderings, 0);
	EXPECT_EQ(read(handle, 10), shown.substr(0, 10));
	const std::string before = shown;
	shown = "changed";
	EXPECT_EQ(read(handle, 500), before.substr(10, 500));
	EXPECT_EQ(read(handle, 0), "");
	EXPECT_EQ(read(handle, 5000), before.substr(510));
	EXPECT_EQ(read(handle, 10), "");
	EXPECT_EQ(renderings, 1);
	EXPECT_EQ(host_proc_close(handle), 0);
}

TEST_F(Proc, text_beyond_the_buffer_is_rendered_again_into_a_larger_one)
{
	const struct {
		size_t size;
		int renderings;
	} rows[] = {{0, 1}, {4095, 1}, {4096, 2}, {8191, 2}, {8192, 3}, {60000, 5}};

	for (const auto &row : rows) {
		SCOPED_TRACE(row.size);
		const int handle = host_proc_open("intr/text", 0);
		shown = digits(row.size);
		renderings = 0;
		EXPECT_EQ(read(handle, 100000), shown);
		EXPECT_EQ(renderings, row.renderings);
		EXPECT_EQ(host_proc_close(handle), 0);
	}
}

TEST_F(Proc, seek_elsewhere_renders_anew_and_goes_anywhere)
{
	const int handle = host_proc_open("intr/text", 0);

	shown = digits(6000);
	EXPECT_EQ(read(handle, 100), shown.substr(0, 100));
	renderings = 0;
	EXPECT_EQ(host_proc_seek(handle, 100), 100);
	EXPECT_EQ(renderings, 0) << "where the last read ended";
	EXPECT_EQ(host_proc_seek(handle, 5990), 5990);
	EXPECT_EQ(renderings, 1);
	EXPECT_EQ(read(handle, 100), shown.substr(5990));
	EXPECT_EQ(renderings, 1);
	shown = "new";
	EXPECT_EQ(host_proc_seek(handle, 1), 1);
	EXPECT_EQ(read(handle, 100), "ew");
	EXPECT_EQ(host_proc_seek(handle, 0), 0);
	EXPECT_EQ(read(handle, 100), "new");
	EXPECT_EQ(host_proc_seek(handle, 50), 50);
	EXPECT_EQ(read(handle, 100), "");
	EXPECT_EQ(host_proc_seek(handle, -1), -22);

	show_result = -12;
	EXPECT_EQ(host_proc_seek(handle, 2), -12);
	EXPECT_EQ(read(handle, 100), "-12");
	show_result = 0;
	EXPECT_EQ(read(handle, 100), "new") << "from the start again";
	EXPECT_EQ(host_proc_close(handle), 0);
}

TEST_F(Proc, reads_and_writes_meet_bad_user_memory_as_the_kernel_does)
{
	page_and_hole pages;
	const int handle = host_proc_open("intr/value", 1);
	const int text = host_proc_open("intr/text", 0);
	const int text_writing = host_proc_open("intr/text", 1);

	shown = "0123456789";
	EXPECT_EQ(host_proc_read(handle, pages.hole() - 4, 8), 4);
	EXPECT_EQ(host_proc_read(handle, pages.hole(), 8), -14);
	EXPECT_EQ(read(handle, 8), "456789") << "nothing was lost";
	EXPECT_EQ(host_proc_write(handle, "abcdefghij", 10), 8);
	EXPECT_EQ(host_proc_write(handle, nullptr, 4), -14);
	EXPECT_EQ(shown, "abcdefgh");
	EXPECT_EQ(host_proc_seek(handle, 0), 0);
	EXPECT_EQ(read(handle, 100), "abcdefgh");

	EXPECT_EQ(host_proc_write(text, "a", 1), -9) << "not opened for writing";
	EXPECT_EQ(host_proc_write(text_writing, "a", 1), -5) << "has no write operation";
	EXPECT_EQ(host_proc_open("intr/none", 0), -2);
	EXPECT_EQ(host_proc_open("intr", 0), -2);
	host_fault("plat_single_open", 1, -12);
	EXPECT_EQ(host_proc_open("intr/text", 0), -12);
	for (const int open : {handle, text, text_writing})
		EXPECT_EQ(host_proc_close(open), 0);
}

TEST_F(Proc, removal_waits_for_calls_and_shuts_out_open_files)
{
	static std::atomic<bool> showing, removed;
	const int handle = host_proc_open("intr/text", 0);
	const int idle = host_proc_open("intr/value", 1);

	showing = removed = false;
	shown = "text";
	in_show = [] {
		showing = true;
		std::this_thread::sleep_for(std::chrono::milliseconds(20));
		EXPECT_FALSE(removed);
	};
	std::thread reader([&] { EXPECT_EQ(read(handle, 10), "text"); });
	while (!showing)
		std::this_thread::yield();
	plat_proc_remove(std::exchange(directory_, nullptr));
	removed = true;
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
	EXPECT_EQ(host_netlink_open(PROTOCOL, 0), -93) << "nobody's protocol";
	sock *socket = plat_netlink_kernel_create(PROTOCOL);
	ASSERT_NE(socket, nullptr);
	EXPECT_EQ(plat_netlink_kernel_create(PROTOCOL), nullptr);

	const int first = host_netlink_open(PROTOCOL, 0), second = host_netlink_open(PROTOCOL, 0);
	const u32 port = host_netlink_port(first);
	EXPECT_NE(port, host_netlink_port(second));
	EXPECT_EQ(send(socket, "12345678", port), 24);
	EXPECT_EQ(send(socket, "abc", port), 20) << "padded";
	const u8 header[] = {24, 0, 0, 0, 9, 0, 10, 0, 8, 0, 0, 0, 7, 0, 0, 0};
	EXPECT_EQ(receive(first),
		  std::string(reinterpret_cast<const char *>(header), 16) + "12345678");
	EXPECT_EQ(receive(first).substr(16), std::string("abc\0", 4));
	EXPECT_EQ(receive(first), "-11");
	EXPECT_EQ(receive(second), "-11");

	EXPECT_EQ(host_netlink_close(first), 0);
	EXPECT_EQ(send(socket, "x", port), -111);
	EXPECT_EQ(send(socket, "x", 0), -111) << "the kernel's own socket takes nothing";
	host_fault("plat_netlink_unicast", 1, -105);
	EXPECT_EQ(send(socket, "x", host_netlink_port(second)), -105);
	EXPECT_EQ(receive(second), "-11");
	sk_buff *small = plat_nlmsg_new(8);
	EXPECT_EQ(plat_nlmsg_put(small, 0, 0, 0, 9, 0), nullptr);
	plat_nlmsg_free(small);
	plat_netlink_kernel_release(socket);
	EXPECT_EQ(host_netlink_close(second), 0);
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
	EXPECT_EQ(host_gpio_map(400, 33), -17);
	EXPECT_EQ(host_gpio_map(401, 32), -17);
	ASSERT_EQ(host_gpio_map(401, HOST_LINES), 0);
	gpio_desc *pin = plat_gpio_to_desc(400);
	EXPECT_EQ(plat_gpio_to_desc(399), nullptr);
	EXPECT_EQ(plat_gpiod_direction_input(pin), 0);
	EXPECT_EQ(plat_gpiod_direction_input(nullptr), 0);
	EXPECT_EQ(plat_gpiod_to_irq(nullptr), -22);
	EXPECT_EQ(plat_gpiod_to_irq(plat_gpio_to_desc(401)), -6);
	pin_virq = host_line_virq(32);
	ASSERT_EQ(plat_gpiod_to_irq(pin), static_cast<int>(pin_virq));

	for (const u32 type : {1u, 2u, 3u, 4u, 8u})
		EXPECT_EQ(plat_irq_set_irq_type(pin_virq, type), 0) << type;
	EXPECT_EQ(plat_irq_set_irq_type(pin_virq, 5), -22);

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

	u32 depth = 99;
	EXPECT_EQ(plat_irq_get_depth(pin_virq, &depth), 0);
	EXPECT_EQ(depth, 0u);
	plat_irq_modify_status(pin_virq, 0, 1ul << 19); // IRQ_DISABLE_UNLAZY
	plat_disable_irq_nosync(pin_virq);
	host_line_set_pending(32, 1);
	EXPECT_EQ(plat_irq_get_depth(pin_virq, &depth), 0);
	EXPECT_EQ(depth, 1u);
	EXPECT_EQ(host_wait_idle(10000), 0);
	EXPECT_EQ(pin_interrupts, 3u) << "kept while masked";
	plat_enable_irq(pin_virq);
	EXPECT_EQ(host_wait_idle(10000), 0);
	EXPECT_EQ(pin_interrupts, 4u);
	EXPECT_EQ(plat_irq_get_depth(0, &depth), -22);
	EXPECT_EQ(depth, 1u) << "untouched";
	plat___irq_set_handler(pin_virq, nullptr, 1, nullptr);
}

std::vector<std::string> bus_calls;

plat_platform_driver make_driver()
{
	plat_platform_driver driver = {};

	driver.name = "irq_combiner";
	driver.probe = [](platform_device *device) {
		bus_calls.push_back(std::string("probe ") + plat_platform_device_name(device));
		return plat_platform_get_irq(device, 2) > 0 ? 0 : -14;
	};
	driver.remove = [](platform_device *device) {
		bus_calls.push_back(std::string("remove ") + plat_platform_device_name(device));
		return 0;
	};
	return driver;
}

std::string names_on_bus()
{
	char *text = host_driver_names();
	const std::string names = text;

	free(text);
	return names;
}

TEST_F(User, drivers_share_a_name_by_a_second_one_and_are_bound_by_hand)
{
	plat_platform_driver tree = make_driver(), acpi = make_driver(), third = make_driver();
	tree.of_compatible = "a,b";
	acpi.acpi_id = "NETB0009";
	acpi.second_name = third.second_name = "irq_combiner-acpi";
	const u32 virqs[] = {host_line_virq(0), host_line_virq(1), host_line_virq(2)};
	bus_calls.clear();
	host_device_add("tree", "a,b", virqs, 1);
	host_device_add("NETB0009:00", "acpi:NETB0009", virqs, 3);
	host_device_add("NETB0010:00", "acpi:NETB0010", virqs, 3);
	ASSERT_EQ(plat_platform_driver_register(&tree), 0);
	ASSERT_EQ(plat_platform_driver_register(&acpi), 0);
	EXPECT_EQ(names_on_bus(), "irq_combiner\nirq_combiner-acpi\n");
	EXPECT_THAT(bus_calls, ElementsAre("probe tree", "probe NETB0009:00"));
	char *log = host_kernel_log();
	EXPECT_THAT(log, testing::Not(HasSubstr("already registered")));
	free(log);
	EXPECT_EQ(plat_platform_driver_register(&third), -16);
	log = host_kernel_log();
	EXPECT_THAT(log, HasSubstr("Driver 'irq_combiner-acpi' is already registered"));
	free(log);

	bus_calls.clear();
	EXPECT_EQ(host_device_unbind("irq_combiner", "NETB0009:00"), -19) << "another driver's";
	EXPECT_EQ(host_device_bind("irq_combiner-acpi", "NETB0009:00"), -16);
	EXPECT_EQ(host_device_unbind("irq_combiner-acpi", "NETB0009:00"), 0);
	EXPECT_EQ(host_device_unbind("irq_combiner-acpi", "NETB0009:00"), -19);
	EXPECT_EQ(host_device_bind("irq_combiner", "NETB0009:00"), -19) << "does not match";
	EXPECT_EQ(host_device_bind("irq_combiner", "tree"), -14) << "what its probe said";
	EXPECT_EQ(host_device_bind("irq_combiner-acpi", "NETB0009:00"), 0);
	EXPECT_EQ(host_device_bind("irq_combiner", "nobody"), -19);
	EXPECT_EQ(host_device_bind("no_driver", "tree"), -2);
	EXPECT_THAT(bus_calls,
		    ElementsAre("remove NETB0009:00", "probe tree", "probe NETB0009:00"));
	plat_platform_driver_unregister(&acpi);
	plat_platform_driver_unregister(&tree);
	EXPECT_EQ(host_device_bound("NETB0009:00"), 0);
}

TEST_F(Proc, what_would_harm_a_kernel_stops_loudly)
{
	static sock *socket;
	static int port;
	static plat_proc_ops bare = {[](inode *, file *) { return 0; }, nullptr, {}};
	static plat_proc_ops leaking = {
		[](inode *, file *file) {
			(void)plat_single_open(file, show, nullptr);
			return -1;
		},
		nullptr,
		{},
	};
	struct {
		const char *text; // of the stop
		std::function<void()> misuse;
	} const cases[] = {
		{"'intr' already registered",
		 [this] { EXPECT_EQ(plat_proc_mkdir("intr", &other_module_), nullptr); }},
		{"'intr/text' already registered",
		 [this] {
			 EXPECT_EQ(plat_proc_create_data("text", 0444, directory_, &readable,
							 nullptr),
				   nullptr);
		 }},
		{"proc_remove",
		 [this] {
			 proc_dir_entry *gone = plat_proc_mkdir("gone", directory_);
			 plat_proc_remove(gone);
			 plat_proc_remove(gone);
		 }},
		{"opened without single_open", [] { host_proc_open("intr/bare", 0); }},
		{"open failed after single_open", [] { host_proc_open("intr/leaking", 0); }},
		{"show of a proc file returned with a lock held",
		 [] {
			 const int handle = host_proc_open("intr/text", 0);
			 in_show = [] { plat_local_irq_disable(); };
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
			 open_result = 0;
			 EXPECT_EQ(plat_misc_register(&control), 0);
			 const int handle = host_misc_open("control");
			 plat_misc_deregister(&control);
			 host_misc_close(handle);
		 }},
		{"ioctl returned with a lock held",
		 [] {
			 on_ioctl = [](unsigned int, unsigned long) {
				 return static_cast<long>(plat_srcu_read_lock());
			 };
			 EXPECT_EQ(plat_misc_register(&control), 0);
			 const int handle = host_misc_open("control");
			 plat_srcu_read_unlock(
				 static_cast<int>(host_misc_ioctl(handle, 0, nullptr)));
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
			 plat_netlink_unicast(socket, message, 1, NONBLOCK);
			 plat_nlmsg_free(message);
		 }},
		{"netlink_unicast: sleeping function",
		 [] {
			 while (send(socket, "x", host_netlink_port(port)) > 0)
				 continue;
			 plat_local_irq_disable();
			 EXPECT_EQ(send(socket, "x", host_netlink_port(port), 0), -11);
			 plat_local_irq_enable();
		 }},
		{"2 left behind: netlink message of 20 bytes netlink socket of protocol 18",
		 [this] {
			 plat_proc_remove(directory_);
			 plat_netlink_kernel_release(socket);
			 host_netlink_close(port);
			 sk_buff *message = make_message("x");
			 sock *left = plat_netlink_kernel_create(18);
			 host_check_leftovers();
			 plat_nlmsg_free(message);
			 plat_netlink_kernel_release(left);
			 directory_ = plat_proc_mkdir("intr", &other_module_);
		 }},
		{"4 left behind: open file \"intr/text\" misc device \"control\" proc entry",
		 [this] {
			 plat_proc_create_data("text", 0444, directory_, &readable, nullptr);
			 const int handle = host_proc_open("intr/text", 0);
			 EXPECT_EQ(plat_misc_register(&control), 0);
			 host_check_leftovers();
			 plat_misc_deregister(&control);
			 host_proc_close(handle);
		 }},
	};

	host_set_stop_handler(note_stop);
	socket = plat_netlink_kernel_create(PROTOCOL);
	port = host_netlink_open(PROTOCOL, 1);
	plat_proc_create_data("bare", 0444, directory_, &bare, nullptr);
	plat_proc_create_data("leaking", 0444, directory_, &leaking, nullptr);
	for (const auto &row : cases) {
		SCOPED_TRACE(row.text);
		row.misuse();
		EXPECT_THAT(take_stops(), ElementsAre(HasSubstr(row.text)));
	}
}

TEST_F(User, netlink_socket_released_under_a_waiting_sender_stops_loudly)
{
	sock *socket = plat_netlink_kernel_create(PROTOCOL);
	const int handle = host_netlink_open(PROTOCOL, 1);
	const u32 port = host_netlink_port(handle);

	for (int filled = 0; filled < 4; filled++)
		send(socket, "x", port);
	host_set_stop_handler(note_stop);
	std::thread sender([&] { send(socket, "x", port, 0); });
	while (host_calls("plat_netlink_unicast") < 5)
		std::this_thread::yield();
	std::this_thread::sleep_for(std::chrono::milliseconds(20));
	// Asking the port orders us behind the sender, or the thread checker would stop first.
	EXPECT_EQ(host_netlink_port(handle), port);
	plat_netlink_kernel_release(socket);
	EXPECT_EQ(host_netlink_close(handle), 0);
	sender.join();
	EXPECT_THAT(take_stops(), ElementsAre(AnyOf(HasSubstr("being sent through the socket"),
						    HasSubstr("through a released socket"))));
}

} // namespace
