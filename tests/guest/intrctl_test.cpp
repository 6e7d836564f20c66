// SPDX-License-Identifier: GPL-2.0
//
// intrctl as people and scripts use it, against the driver in a booted kernel.
// Only what it prints, how it ends and what it leaves behind is looked at.
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/netlink.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "rig.h"
#include "uapi/intr.h"

namespace rig {

namespace {

using testing::HasSubstr;
using words = std::vector<std::string>;

constexpr unsigned PATIENCE_MS = 20000;
constexpr char SUBSCRIBED[] = "[intr ioctl set pid]success";
// What watch prints of the first leaf.
constexpr char ONCE[] = "index_id=0x100 type=3 n=1\n";
constexpr char TWICE[] = "index_id=0x100 type=3 n=1\nindex_id=0x100 type=3 n=2\n";

// A file in memory that takes one output of a program.
class capture {
public:
	capture() : file_(memfd_create("output", MFD_CLOEXEC)) {}
	~capture() { close(file_); }
	capture(const capture &) = delete;
	capture &operator=(const capture &) = delete;

	int file() const { return file_; }
	std::string text() const
	{
		std::string all;
		char part[4096];

		for (ssize_t size;
		     (size = pread(file_, part, sizeof(part), static_cast<off_t>(all.size()))) > 0;)
			all.append(part, static_cast<size_t>(size));
		return all;
	}

private:
	int file_;
};

// A pipe that takes nothing, and is never read.
class full_pipe {
public:
	full_pipe()
	{
		if (pipe2(ends_, O_CLOEXEC | O_NONBLOCK) != 0)
			abort();
		while (write(ends_[1], ".", 1) > 0)
			;
		fcntl(ends_[1], F_SETFL, 0);
	}
	~full_pipe()
	{
		close(ends_[0]);
		close(ends_[1]);
	}
	full_pipe(const full_pipe &) = delete;
	full_pipe &operator=(const full_pipe &) = delete;

	int input() const { return ends_[1]; }

private:
	int ends_[2];
};

// One run of intrctl; ended with this object at the latest.
class program {
public:
	static constexpr uid_t ROOT = 0, NOBODY = 65534;

	explicit program(const words &words, int output = -1, uid_t user = ROOT) : pid_(fork())
	{
		if (pid_ == 0)
			become(words, output < 0 ? out_.file() : output, err_.file(), user);
	}
	~program()
	{
		if (!running_)
			return;
		kill(pid_, SIGKILL);
		waitpid(pid_, nullptr, 0);
	}
	program(const program &) = delete;
	program &operator=(const program &) = delete;

	std::string out() const { return out_.text(); }
	std::string err() const { return err_.text(); }
	bool running()
	{
		if (running_ && waitpid(pid_, &status_, WNOHANG) == pid_)
			running_ = false;
		return running_;
	}
	void send(int signal) { kill(pid_, signal); }
	// Returns when it does not run any more, which a signal alone does not say.
	void stop()
	{
		send(SIGSTOP);
		waitpid(pid_, nullptr, WUNTRACED);
	}
	// The exit code, or -1: it did not end, or not by itself.
	int end()
	{
		if (!eventually([&] { return !running(); }, PATIENCE_MS) || !WIFEXITED(status_))
			return -1;
		return WEXITSTATUS(status_);
	}
	int end(int signal)
	{
		send(signal);
		return end();
	}

private:
	[[noreturn]] static void become(const words &words, int out, int err, uid_t user)
	{
		static char name[] = "intrctl";
		std::vector<char *> arguments = {name};

		for (const std::string &word : words)
			arguments.push_back(const_cast<char *>(word.c_str()));
		arguments.push_back(nullptr);
		dup2(out, STDOUT_FILENO);
		dup2(err, STDERR_FILENO);
		if (setresuid(user, user, user) == 0)
			execv("/bin/intrctl", arguments.data());
		_exit(127);
	}

	capture out_, err_;
	int status_ = 0;
	bool running_ = true;
	pid_t pid_;
};

class Intrctl : public Scenario {
protected:
	struct outcome {
		int code;
		std::string out, err;
	};

	static outcome run(const words &words)
	{
		program program(words);
		const int code = program.end();

		return {code, program.out(), program.err()};
	}
	static void expect_done(const words &words)
	{
		const outcome outcome = run(words);

		EXPECT_EQ(outcome.code, 0) << outcome.err;
		EXPECT_EQ(outcome.err, "");
	}
	// One line on the error output, nothing else.
	static void expect_refused(const words &words, int code, const std::string &why)
	{
		const outcome outcome = run(words);

		EXPECT_EQ(outcome.code, code) << outcome.err;
		EXPECT_EQ(outcome.out, "");
		EXPECT_THAT(outcome.err, HasSubstr(why));
		EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1)
			<< outcome.err;
	}

	// Combiner 1 with leaves 0x100/3 and 0x101/3, and the driver.
	void load_two_leaves()
	{
		board_ = make_combiner(1, 2);
		load({board_});
	}
	const leaf &first() const { return board_.leaves[0]; }
	const leaf &second() const { return board_.leaves[1]; }

	void wait_subscribed(const char *index = "0x100")
	{
		EXPECT_TRUE(wait_log(SUBSCRIBED + std::string(", index_id=") + index));
	}
	bool unsubscribed(const char *index = "0x100")
	{
		return logged(std::string("[intr ioctl unset pid]success, index_id=") + index);
	}
	bool wait_log(const std::string &text)
	{
		return eventually([&] { return logged(text); }, PATIENCE_MS);
	}
	static bool wait_out(const program &program, const std::string &text)
	{
		return eventually([&] { return program.out() == text; }, PATIENCE_MS);
	}
	bool wait_depth(int wanted, const leaf &leaf)
	{
		return eventually([&] { return depth(leaf) == wanted; }, PATIENCE_MS);
	}

	// What waits in the socket of that port, or -1.
	static long unread_bytes(u32 port)
	{
		std::ifstream file("/proc/net/netlink");

		for (std::string line; std::getline(file, line);) {
			unsigned protocol = 0, owner = 0;
			long unread = -1;

			if (sscanf(line.c_str(), "%*s %u %u %*s %ld", &protocol, &owner, &unread) ==
				    3 &&
			    protocol == 30 && owner == port)
				return unread;
		}
		return -1;
	}

	// The port that the last subscription names.
	u32 subscribed_port()
	{
		u32 port = 0;

		for (const std::string &line : log()) {
			const size_t at = line.find("pid=");

			if (line.find(SUBSCRIBED) != std::string::npos && at != std::string::npos)
				port = static_cast<u32>(std::stoul(line.substr(at + 4)));
		}
		return port;
	}

	combiner board_;
};

const words watch_first = {"watch", "0x100", "3"};

words with(words words, const rig::words &more)
{
	words.insert(words.end(), more.begin(), more.end());
	return words;
}

class Watch : public Intrctl {
protected:
	void SetUp() override
	{
		Intrctl::SetUp();
		if (!HasFatalFailure())
			load_two_leaves();
	}

	// A client holds the leaf, too, so that its depth stays to be looked at, and disables
	// it: nothing is fired before watch has enabled it, as the last step of its start.
	void hold_first()
	{
		ASSERT_EQ(regist(first()), 0);
		ASSERT_EQ(enable(first(), 0), 0);
	}
};

TEST_F(Watch, prints_each_occurrence_at_once_and_opens_the_leaf_again)
{
	program watch({"watch", "0x100", "3", "257", "3", "0x100", "3"});
	wait_subscribed("0x101");
	fire_open(first());
	EXPECT_TRUE(wait_out(watch, ONCE));
	fire_open(first());
	EXPECT_TRUE(wait_out(watch, TWICE));
	fire_open(second());
	EXPECT_TRUE(wait_out(watch, TWICE + std::string("index_id=0x101 type=3 n=3\n")));
	EXPECT_TRUE(watch.running());
	EXPECT_EQ(watch.end(SIGTERM), 0);
	EXPECT_EQ(watch.err(), "");
	EXPECT_TRUE(unsubscribed("0x100"));
	EXPECT_TRUE(unsubscribed("0x101"));
	EXPECT_FALSE(logged("cmd fail"));
}

TEST_F(Watch, ends_after_so_many_events_with_all_answered)
{
	hold_first();
	program watch(with(watch_first, {"--num-events", "2", "--format", "json"}));
	wait_subscribed();
	for (size_t n = 1; n <= 2; n++) {
		fire_open(first());
		EXPECT_TRUE(wait_events(n));
	}
	EXPECT_EQ(watch.end(), 0) << watch.err();
	EXPECT_EQ(watch.out(), "{\"index_id\":256,\"type\":3,\"n\":1}\n"
			       "{\"index_id\":256,\"type\":3,\"n\":2}\n");
	EXPECT_TRUE(unsubscribed());
	EXPECT_EQ(depth(first()), 0);
}

TEST_F(Watch, ends_with_code_3_when_idle_for_so_long)
{
	program watch(with(watch_first, {"--idle-timeout", "1.5"}));
	wait_subscribed();
	const auto fired = std::chrono::steady_clock::now();
	fire_open(first());
	EXPECT_EQ(watch.end(), 3) << watch.err();
	EXPECT_GE(std::chrono::steady_clock::now() - fired, std::chrono::milliseconds(1500));
	EXPECT_EQ(watch.out(), ONCE);
	EXPECT_EQ(watch.err(), "");
	EXPECT_TRUE(unsubscribed());
}

TEST_F(Watch, unsubscribes_at_each_ending_signal)
{
	for (const int signal : {SIGINT, SIGHUP}) {
		SCOPED_TRACE(strsignal(signal));
		clear_log();
		program watch(watch_first);
		wait_subscribed();
		EXPECT_EQ(watch.end(signal), 0) << watch.err();
		EXPECT_TRUE(unsubscribed());
	}
}

TEST_F(Watch, takes_over_a_leaf_that_was_left_disabled)
{
	hold_first();
	program idle(with(watch_first, {"--no-enable", "--idle-timeout", "0.2"}));
	EXPECT_EQ(idle.end(), 3);
	EXPECT_EQ(depth(first()), 1);
	program watch(with(watch_first, {"--num-events", "1"}));
	EXPECT_TRUE(wait_depth(0, first()));
	fire_open(first());
	EXPECT_EQ(watch.end(), 0);
}

TEST_F(Watch, leaves_the_enable_to_others_when_told_so)
{
	program watch(with(watch_first, {"--no-enable"}));
	wait_subscribed();
	fire_open(first());
	EXPECT_TRUE(wait_out(watch, ONCE));
	EXPECT_TRUE(wait_depth(1, first()));
	expect_done({"enable", "0x100", "3"});
	fire_open(first());
	EXPECT_TRUE(wait_out(watch, TWICE));
}

TEST_F(Watch, answers_what_it_has_not_read)
{
	hold_first();
	program watch(watch_first);
	wait_subscribed();
	ASSERT_TRUE(wait_depth(0, first()));
	watch.stop();
	fire_open(first());
	EXPECT_TRUE(wait_depth(1, first()));
	watch.send(SIGTERM);
	EXPECT_EQ(watch.end(SIGCONT), 0) << watch.err();
	EXPECT_EQ(watch.out(), "");
	EXPECT_EQ(depth(first()), 0);
}

TEST_F(Watch, that_cannot_print_answers_and_ends)
{
	const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);

	hold_first();
	program watch(watch_first, full);
	wait_subscribed();
	fire_open(first());
	EXPECT_EQ(watch.end(), 1);
	EXPECT_EQ(watch.err(), "intrctl: standard output: No space left on device\n");
	EXPECT_TRUE(unsubscribed());
	EXPECT_EQ(depth(first()), 0);
	program report({"report", "cfg"}, full);
	EXPECT_EQ(report.end(), 1);
	EXPECT_THAT(report.err(), HasSubstr("standard output: No space left"));
	close(full);
}

TEST_F(Watch, can_be_ended_while_nobody_reads_its_output)
{
	const full_pipe output;

	hold_first();
	program watch(watch_first, output.input());
	wait_subscribed();
	fire_open(first());
	EXPECT_TRUE(wait_depth(1, first())); // answered only when it is printed
	EXPECT_TRUE(eventually([&] { return unread_bytes(subscribed_port()) == 0; }, PATIENCE_MS));
	EXPECT_EQ(depth(first()), 1);
	EXPECT_EQ(watch.end(SIGTERM), 0) << watch.err();
	EXPECT_EQ(depth(first()), 0);
}

// A socket that had no room takes no message before it is empty: a subscription
// made until then would end again.
TEST_F(Watch, subscribes_again_once_all_is_read_after_an_overrun)
{
	const std::string overrun = "nlmsg_unicast fail", answer = "[intr enable]enter";

	hold_first();
	program watch(with(watch_first, {"--receive-buffer", "1"}));
	wait_subscribed();
	ASSERT_TRUE(wait_depth(0, first()));
	watch.stop();
	ASSERT_EQ(set_proc("int_debug_switch", "1"), 0);
	// Somebody else enables the leaf, so that messages pile up.
	for (size_t n = 1; n < 100 && !logged(overrun); n++) {
		fire_open(first());
		ASSERT_TRUE(wait_events(n));
		ASSERT_TRUE(eventually([&] { return depth(first()) == 1 || logged(overrun); }));
		expect_done({"enable", "0x100", "3"});
	}
	const size_t unread = count_logged("[intr notify pid]notify pid success");
	ASSERT_TRUE(logged(overrun));
	ASSERT_GT(unread, 1u);
	clear_log();
	watch.send(SIGCONT);
	wait_subscribed();
	// Every message was answered, and so had been read, before the subscription.
	size_t answered = 0;
	for (const std::string &line : log()) {
		if (line.find(SUBSCRIBED) != std::string::npos)
			break;
		answered += line.find(answer) != std::string::npos;
	}
	EXPECT_EQ(answered, unread);
	EXPECT_THAT(watch.err(), HasSubstr("receive buffer overrun"));
	const std::string printed = watch.out();
	EXPECT_EQ(testbed::lines_of(printed).size(), unread);
	fire_open(first());
	EXPECT_TRUE(eventually([&] { return watch.out().size() > printed.size(); }, PATIENCE_MS));
	EXPECT_EQ(watch.end(SIGTERM), 0) << watch.err();
}

TEST_F(Watch, ignores_messages_of_other_processes)
{
	program watch(watch_first);
	wait_subscribed();
	const drv_intr_nl_msg message = {sizeof(message), 0, 0, 0, 0, {0x100, 3}};
	const int socket = testbed::netlink_open(30);
	ASSERT_GT(socket, 0);
	sockaddr_nl to{};
	to.nl_family = AF_NETLINK;
	to.nl_pid = subscribed_port();
	ASSERT_EQ(sendto(socket, &message, sizeof(message), 0,
			 reinterpret_cast<const sockaddr *>(&to), sizeof(to)),
		  static_cast<ssize_t>(sizeof(message)));
	const std::string from = std::to_string(testbed::netlink_port(socket));
	testbed::netlink_close(socket);
	EXPECT_TRUE(eventually([&] { return !watch.err().empty(); }, PATIENCE_MS));
	EXPECT_EQ(watch.err(), "intrctl: netlink: a message from port " + from +
				       " ignored: not sent by the kernel\n");
	fire_open(first());
	EXPECT_TRUE(wait_out(watch, ONCE));
}

TEST_F(Watch, ends_a_subscription_that_it_finds_on_its_port)
{
	ASSERT_EQ(regist(second()), 0);
	program watch(watch_first);
	wait_subscribed();
	ASSERT_EQ(subscribe(second(), subscribed_port()), 0);
	fire_open(second());
	EXPECT_TRUE(wait_log("[intr ioctl unset pid]success, index_id=0x101"));
	EXPECT_TRUE(wait_depth(0, second()));
	EXPECT_THAT(watch.err(), HasSubstr("leaf index_id=0x101 type=3: subscribed by somebody"));
	EXPECT_EQ(watch.out(), "");
}

TEST_F(Watch, of_an_unknown_leaf_keeps_no_subscription)
{
	expect_refused({"watch", "0x100", "3", "0x999", "3"}, 1,
		       "leaf index_id=0x999 type=3: subscribing refused by the driver");
	EXPECT_TRUE(unsubscribed("0x100"));
}

TEST_F(Intrctl, each_enable_takes_back_one_disable)
{
	load_two_leaves();
	expect_refused({"enable", "0x100", "3"}, 1,
		       "leaf index_id=0x100 type=3: enabling refused by the driver");
	expect_refused({"disable", "0x999", "3"}, 1, "/proc/diag/log");
	ASSERT_EQ(regist(first()), 0);
	for (const int depth_then : {1, 2}) {
		expect_done({"disable", "256", "3"});
		EXPECT_EQ(depth(first()), depth_then);
	}
	expect_done({"enable", "0x100", "0x3"});
	EXPECT_EQ(depth(first()), 1);
}

TEST_F(Intrctl, netlink_protocol_is_the_configured_one)
{
	board_ = make_combiner(1, 1);
	configure({board_});
	for (const u32 id : {40u, 27u}) {
		table().nodes["global_cfg"]["common"]["netlink_id"] = id;
		install();
		load();
		EXPECT_EQ(run({"netlink-id"}).out, std::to_string(id) + "\n");
		if (id == 40) {
			expect_refused(watch_first, 1,
				       "netlink protocol 40: the kernel has no such protocol");
			unload();
		}
	}
	program watch(with(watch_first, {"--num-events", "1"}));
	wait_subscribed();
	fire_open(first());
	EXPECT_EQ(watch.end(), 0) << watch.err();
}

TEST_F(Intrctl, debug_sets_and_shows_the_switches)
{
	const struct {
		words change;
		const char *show, *report;
	} steps[] = {
		{{"debug", "on", "0x2a"}, "1\n", "1(on)\ndebug irq: 42\n"},
		{{"debug", "on"}, "1\n", "1(on)\ndebug irq: 0\n"},
		{{"debug", "off"}, "0\n", "0(off)\ndebug irq: 0\n"},
	};

	load_two_leaves();
	EXPECT_EQ(run({"debug"}).out, "int_debug_switch=0\n");
	for (const auto &step : steps) {
		expect_done(step.change);
		EXPECT_EQ(run({"debug", "show"}).out, std::string("int_debug_switch=") + step.show);
		EXPECT_EQ(run({"report", "switch"}).out,
			  std::string("interrupt debug switch: ") + step.report);
	}
}

TEST_F(Intrctl, reports_are_those_of_the_driver)
{
	load_two_leaves();
	ASSERT_EQ(regist(first()), 0);
	for (const char *name : {"runtime", "cfg"}) {
		const outcome report = run({"report", name});

		EXPECT_EQ(report.code, 0) << report.err;
		EXPECT_THAT(report.out, HasSubstr("0x100"));
		EXPECT_EQ(report.out, proc(name));
	}
	const long virq = ask("client", "find 0x100 3");
	const outcome one = run({"report", "virq", std::to_string(virq)});
	EXPECT_EQ(one.code, 0) << one.err;
	EXPECT_THAT(one.out, HasSubstr("Suppress count"));
	EXPECT_EQ(one.out, report(DRV_INTR_IOC_DBG_VIRQ, static_cast<u32>(virq)));
	expect_refused({"report", "virq", "4000000000"}, 1,
		       "is 4000000000 the interrupt of a leaf");
}

TEST_F(Intrctl, a_report_that_is_cut_says_so)
{
	load({make_combiner(1, 100), make_combiner(2, 100)});
	const outcome report = run({"report", "cfg"});
	EXPECT_EQ(report.code, 0);
	EXPECT_EQ(report.out.size(), DRV_INTR_REPORT_MAX - 1);
	EXPECT_THAT(report.err, HasSubstr("cut at 65535 characters"));
}

// Card 5 with one combiner and one leaf, behind the board's first GPIO pin.
combiner make_card()
{
	combiner card = make_card_combiner(5, 0, 1);

	place_at_gpio(card, 0);
	return card;
}

TEST_F(Intrctl, card_takes_an_instance_id_or_a_card_number)
{
	const auto is_up = [&] {
		return proc("runtime").find("combiner52\n") != std::string::npos;
	};

	load({make_card()});
	expect_done({"card", "up", "--card", "5"});
	EXPECT_TRUE(is_up());
	expect_refused({"card", "up", "0x05000000"}, 1,
		       "card inst_id=0x5000000: bringing up refused");
	expect_done({"card", "down", "0x05000000"});
	EXPECT_FALSE(is_up());
	expect_done({"card", "up", "83886080"});
	expect_done({"card", "down", "--card", "0x5"});
	const outcome none = run({"card", "up", "5"});
	EXPECT_EQ(none.code, 0);
	EXPECT_THAT(none.err, HasSubstr("card 0 has no combiners up; is its table loaded?"));
	EXPECT_FALSE(is_up());
	expect_refused({"card", "up", "0xffffffff"}, 1, "inst_id=0xffffffff: bringing up refused");
	expect_refused({"card", "down", "0xffffffff"}, 1, "is it a card's id?");
}

TEST_F(Intrctl, watch_tells_that_a_card_has_gone)
{
	const combiner card = make_card();
	const leaf &leaf = card.leaves[0];

	board_ = make_combiner(1, 1);
	load({board_, card});
	expect_done({"card", "up", "--card", "5"});
	program watch(
		{"watch", std::to_string(leaf.index), std::to_string(leaf.type), "0x100", "3"});
	wait_subscribed("0x100");
	fire_open(leaf);
	EXPECT_TRUE(eventually([&] { return !watch.out().empty(); }, PATIENCE_MS));
	expect_done({"card", "down", "--card", "5"});
	EXPECT_EQ(watch.end(SIGTERM), 1);
	EXPECT_THAT(watch.err(), HasSubstr("the subscription had ended before"));
	EXPECT_TRUE(unsubscribed("0x100"));
}

TEST_F(Intrctl, missing_or_closed_device_is_told_in_one_line)
{
	expect_refused({"netlink-id"}, 1, "/dev/intr: no such device; load the driver");
	load_two_leaves();
	program nobody({"report", "cfg"}, -1, program::NOBODY);
	EXPECT_EQ(nobody.end(), 1);
	EXPECT_EQ(nobody.err(), "intrctl: /dev/intr: no permission; run as root\n");
	EXPECT_EQ(nobody.out(), "");
}

} // namespace

} // namespace rig
