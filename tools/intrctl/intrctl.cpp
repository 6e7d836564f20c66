// SPDX-License-Identifier: GPL-2.0
//
// intrctl: the driver's control device for people and scripts. One subcommand for
// each thing that uapi/intr.h offers.
//
// Exit code: 0 done, 1 failed (one line on the standard error output), 2 wrong
// usage, 3 watch saw nothing for its idle timeout.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "intrctl_device.h"
#include "intrctl_watch.h"
#include "table/numbering.h"
#include "tools/common/number.h"

namespace intrctl {

namespace {

// What a subcommand has to do once all arguments are known to be right.
using job = std::function<int(control_device &)>;

struct command_line {
	std::string device = DRV_INTR_DEVICE;
	leaf chosen;
	std::vector<uint32_t> watched;
	watch_options watch;
	std::string format = "text";
	bool no_enable = false;
	uint32_t virq = 0, inst_id = 0;
	intrctl::job job;
};

struct range {
	uint32_t min = 0, max = UINT32_MAX;
};

// What is wrong with a number, in words; empty when nothing is.
std::string number_error(const std::string &text, range range)
{
	const std::optional<uint32_t> value = tools::parse_number(text);

	if (value && *value >= range.min && *value <= range.max)
		return {};
	return "\"" + text + "\" is no number from " + std::to_string(range.min) + " to " +
	       std::to_string(range.max) + ", decimal or hexadecimal behind 0x";
}

CLI::Validator is_number(range range)
{
	return {[range](const std::string &text) { return number_error(text, range); }, ""};
}

// Of a text that is_number let through.
uint32_t number(const std::string &text)
{
	return tools::parse_number(text).value_or(0);
}

CLI::Option *add_number(CLI::App &app, const std::string &name, uint32_t &value,
			const std::string &help, range range = {})
{
	return app
		.add_option_function<std::string>(
			name, [&value](const std::string &text) { value = number(text); }, help)
		->check(is_number(range))
		->type_name("NUMBER");
}

void add_leaf(CLI::App &app, leaf &leaf)
{
	add_number(app, "INDEX", leaf.index_id, "index_id of the leaf")->required();
	add_number(app, "TYPE", leaf.type, "type of the leaf")->required();
}

int print(const std::string &text)
{
	if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout))
		throw failure(std::string("standard output: ") + std::strerror(errno));
	return exit_done;
}

int set_enable(control_device &device, const leaf &leaf, bool enable)
{
	drv_intr_ioctl_para para = leaf.para();

	para.enable = enable;
	device.command(DRV_INTR_IOC_SET_INT_EN, para,
		       leaf.name() + (enable ? ": enabling" : ": disabling"),
		       "is the leaf configured and in use?");
	return exit_done;
}

uint32_t read_result(control_device &device, uint32_t cmd, const char *what)
{
	drv_intr_ioctl_para para{};

	device.command(cmd, para, what, "");
	return para.result;
}

int set_debug(control_device &device, bool on, uint32_t virq)
{
	drv_intr_ioctl_para para{};

	para.switch_on = on;
	para.virq = virq;
	device.command(DRV_INTR_IOC_SET_DEBUG_SWITCH, para, "debug switch: setting", "");
	return exit_done;
}

// A report's text; more than fits is cut by the driver.
std::string read_report(control_device &device, uint32_t cmd, uint32_t virq,
			const std::string &what, const std::string &doubt)
{
	std::string text(DRV_INTR_REPORT_MAX, '\0');
	drv_intr_ioctl_para para{};

	para.buf = reinterpret_cast<uintptr_t>(text.data());
	para.buf_len = DRV_INTR_REPORT_MAX;
	para.virq = virq;
	device.command(cmd, para, what, doubt);
	text.resize(strnlen(text.data(), text.size()));
	return text;
}

// The driver cuts silently; that much text and no more is no coincidence.
bool is_cut(const std::string &report)
{
	return report.size() + 1 >= DRV_INTR_REPORT_MAX;
}

int report(control_device &device, uint32_t cmd, uint32_t virq, const std::string &doubt)
{
	const std::string text = read_report(device, cmd, virq, "report: reading", doubt);

	print(text);
	if (is_cut(text))
		complain("report: cut at " + std::to_string(text.size()) +
			 " characters, the most that the driver gives");
	return exit_done;
}

bool has_combiner_of(uint32_t card, const std::string &runtime_report)
{
	for (uint32_t index = 0; index < CARD_COMBINERS; index++) {
		const std::string id = std::to_string(card_combiner_id(card, index));

		if (runtime_report.find("\ncombiner" + id + "\n") != std::string::npos)
			return true;
	}
	return false;
}

// A card without a table has no combiners, and bringing up nothing succeeds.
void warn_of_no_combiners(control_device &device, uint32_t card)
{
	try {
		const std::string text = read_report(device, DRV_INTR_IOC_DBG_RUNTIME, 0,
						     "looking at the card's combiners", "");

		if (!has_combiner_of(card, text) && !is_cut(text))
			complain("card " + std::to_string(card) +
				 " has no combiners up; is its table loaded? cat /proc/diag/xml");
	} catch (const failure &error) {
		complain(error.what()); // the card itself is up
	}
}

int change_card(control_device &device, uint32_t inst_id, bool up)
{
	drv_intr_ioctl_para para{};
	char what[64];

	para.inst_id = inst_id;
	std::snprintf(what, sizeof(what), "card inst_id=0x%x: %s", inst_id,
		      up ? "bringing up" : "taking away");
	device.command(up ? DRV_INTR_IOC_INIT_CARD : DRV_INTR_IOC_DEINIT_CARD, para, what,
		       up ? "is it up already, is its parent line there?" : "is it a card's id?");
	if (up)
		warn_of_no_combiners(device, card_number(inst_id));
	return exit_done;
}

CLI::App *add_job(CLI::App &app, command_line &line, const std::string &name,
		  const std::string &help, const job &job)
{
	CLI::App *const added = app.add_subcommand(name, help);

	added->callback([&line, job] { line.job = job; });
	return added;
}

// The leaves of "INDEX TYPE INDEX TYPE", each once.
void pair_up(const std::vector<uint32_t> &numbers, std::vector<leaf> &leaves)
{
	if (numbers.size() % 2 != 0)
		throw CLI::ValidationError("INDEX TYPE",
					   "the last INDEX has no TYPE; each leaf takes both");
	for (size_t i = 0; i < numbers.size(); i += 2) {
		const leaf leaf = {numbers[i], numbers[i + 1]};

		if (std::find(leaves.begin(), leaves.end(), leaf) == leaves.end())
			leaves.push_back(leaf);
	}
}

std::string seconds_error(const std::string &text)
{
	char *end;
	const double value = std::strtod(text.c_str(), &end);

	if (end != text.c_str() && *end == 0 && value >= 0.001 && value <= 1e9)
		return {};
	return "\"" + text + "\" is no number of seconds from 0.001 to 1000000000";
}

std::string format_error(const std::string &text)
{
	return text == "text" || text == "json" ? "" : "\"" + text + "\" is neither text nor json";
}

void add_watched_leaves(CLI::App &watch, command_line &line)
{
	watch.add_option_function<std::vector<std::string>>(
		     "INDEX TYPE",
		     [&line](const std::vector<std::string> &arguments) {
			     for (const std::string &argument : arguments)
				     line.watched.push_back(number(argument));
		     },
		     "index_id and type of each leaf")
		->check(is_number({}))
		->required()
		->type_name("NUMBER");
}

void add_watch_options(CLI::App &watch, command_line &line)
{
	watch_options &options = line.watch;

	add_number(watch, "--num-events", options.num_events, "end after so many interrupts",
		   {.min = 1});
	watch.add_option("--idle-timeout", options.idle_timeout,
			 "end with exit code 3 after so many seconds without an interrupt;\n"
			 "fractions are possible")
		->check(CLI::Validator(seconds_error, ""))
		->type_name("SECONDS");
	watch.add_flag("--no-enable", line.no_enable,
		       "leave the leaves as they are: after an interrupt a leaf stays silent\n"
		       "until somebody enables it");
	watch.add_option("--format", line.format,
			 "text: index_id=0x12 type=3 n=1\n"
			 "json: {\"index_id\":18,\"type\":3,\"n\":1}")
		->check(CLI::Validator(format_error, ""))
		->type_name("text|json");
	add_number(watch, "--receive-buffer", options.receive_buffer,
		   "room for messages that wait to be read, in bytes; one takes about 1000",
		   {.min = 1})
		->type_name("BYTES");
}

void add_watch(CLI::App &app, command_line &line)
{
	CLI::App *const watch = app.add_subcommand(
		"watch",
		"print one line for each interrupt of the leaves, and enable the leaf again.\n"
		"A leaf is enabled once at the start: an earlier receiver may have left it\n"
		"disabled. Ends with exit code 0 by SIGINT, SIGTERM or SIGHUP, unsubscribed.");

	add_watched_leaves(*watch, line);
	add_watch_options(*watch, line);
	watch->callback([&line] {
		pair_up(line.watched, line.watch.leaves);
		line.watch.json = line.format == "json";
		line.watch.answer = !line.no_enable;
		line.job = [&line](control_device &device) {
			return intrctl::watch(device, line.watch);
		};
	});
}

void add_leaf_commands(CLI::App &app, command_line &line)
{
	CLI::App *const enable = add_job(
		app, line, "enable", "take back one disable of a leaf",
		[&line](control_device &device) { return set_enable(device, line.chosen, true); });
	CLI::App *const disable = add_job(
		app, line, "disable", "disable a leaf once more",
		[&line](control_device &device) { return set_enable(device, line.chosen, false); });

	add_leaf(*enable, line.chosen);
	add_leaf(*disable, line.chosen);
	add_job(app, line, "netlink-id", "print the netlink protocol number of the messages",
		[](control_device &device) {
			return print(std::to_string(read_result(device, DRV_INTR_IOC_GET_NETLINK_ID,
								"netlink protocol: reading")) +
				     "\n");
		});
}

void add_debug(CLI::App &app, command_line &line)
{
	const job show = [](control_device &device) {
		return print("int_debug_switch=" +
			     std::to_string(read_result(device, DRV_INTR_IOC_GET_INT_DEBUG_EN,
							"debug switch: reading")) +
			     "\n");
	};
	CLI::App *const debug =
		app.add_subcommand("debug", "tracing of interrupt paths into the driver's log");

	debug->require_subcommand(0, 1);
	debug->callback([&line, debug, show] {
		if (debug->get_subcommands().empty())
			line.job = show;
	});
	add_job(*debug, line, "show", "print the switch, 0 for off (the default)", show);
	CLI::App *const on = add_job(
		*debug, line, "on", "trace one interrupt, or all",
		[&line](control_device &device) { return set_debug(device, true, line.virq); });
	add_number(*on, "VIRQ", line.virq, "Linux interrupt number; 0 or absent for all");
	add_job(*debug, line, "off", "trace nothing, and forget the virq",
		[](control_device &device) { return set_debug(device, false, 0); });
}

void add_report(CLI::App &app, command_line &line)
{
	static constexpr struct {
		const char *name, *help;
		uint32_t cmd;
	} reports[] = {
		{"runtime", "combiners and leaves as they are", DRV_INTR_IOC_DBG_RUNTIME},
		{"cfg", "the configuration that was read", DRV_INTR_IOC_DBG_CFG},
		{"switch", "the debug switches", DRV_INTR_IOC_DBG_SWITCH},
	};
	CLI::App *const group = app.add_subcommand("report", "print a report of the driver");

	group->require_subcommand(1);
	for (const auto &row : reports)
		add_job(*group, line, row.name, row.help, [cmd = row.cmd](control_device &device) {
			return report(device, cmd, 0, "");
		});
	CLI::App *const virq =
		add_job(*group, line, "virq", "one leaf", [&line](control_device &device) {
			return report(device, DRV_INTR_IOC_DBG_VIRQ, line.virq,
				      "is " + std::to_string(line.virq) +
					      " the interrupt of a leaf in use?");
		});
	add_number(*virq, "VIRQ", line.virq, "Linux interrupt number, as in /proc/interrupts")
		->required();
}

void add_card(CLI::App &app, command_line &line)
{
	CLI::App *const card = app.add_subcommand(
		"card",
		"bring the combiners of a plug-in card up, or take them away.\n"
		"A card is named by its instance id, as in its configuration: bits 31 to 24 are\n"
		"its number, or bits 15 to 0 where those are 0xff. So INST_ID 5 is card 0:\n"
		"card 5 is INST_ID 0x05000000, or --card 5.");

	card->require_subcommand(1);
	for (const bool up : {true, false}) {
		CLI::App *const one =
			add_job(*card, line, up ? "up" : "down",
				up ? "after it was plugged in" : "before it is pulled out",
				[&line, up](control_device &device) {
					return change_card(device, line.inst_id, up);
				});
		CLI::Option_group *const which = one->add_option_group("one of these");

		add_number(*which, "INST_ID", line.inst_id, "instance id of the card");
		which->add_option_function<std::string>(
			     "--card",
			     [&line](const std::string &text) {
				     line.inst_id = card_instance(number(text));
			     },
			     "number of the card, 0 to 254: the instance id N << 24")
			->check(is_number({.max = 254}))
			->type_name("N");
		which->require_option(1);
	}
}

// The arguments that are known, the one that is not, and where to look.
std::string usage_error(const CLI::App &app, const CLI::ParseError &error)
{
	const std::vector<std::string> unknown = app.remaining(true);
	std::string what = error.what(), known = app.get_name();

	for (const CLI::App *at = &app; !at->get_subcommands().empty();) {
		at = at->get_subcommands().front();
		known += " " + at->get_name();
	}
	if (dynamic_cast<const CLI::RequiredError *>(&error) && !unknown.empty())
		what = "\"" + unknown.front() + "\" is unknown here";
	return what + "; see " + known + " --help";
}

int parse(int argc, char **argv, command_line &line)
{
	CLI::App app("Control the interrupt combiner driver, and receive its interrupts.\n"
		     "Numbers are decimal, or hexadecimal behind 0x.\n"
		     "Exit code: 0 done, 1 failed (one line says why), 2 usage, 3 idle timeout.",
		     "intrctl");

	app.require_subcommand(1);
	app.fallthrough();
	app.add_option("--device", line.device, "the driver's control device")
		->capture_default_str()
		->type_name("PATH");
	add_watch(app, line);
	add_leaf_commands(app, line);
	add_debug(app, line);
	add_report(app, line);
	add_card(app, line);
	try {
		app.parse(argc, argv);
	} catch (const CLI::ParseError &error) {
		if (error.get_exit_code() == 0)
			return app.exit(error);
		complain(usage_error(app, error));
		return exit_usage;
	}
	return exit_done;
}

int run(int argc, char **argv)
{
	command_line line;
	const int code = parse(argc, argv, line);

	if (code != exit_done || !line.job)
		return code;
	try {
		control_device device(line.device);
		return line.job(device);
	} catch (const failure &error) {
		complain(error.what());
		return exit_failed;
	}
}

} // namespace

} // namespace intrctl

int main(int argc, char **argv)
{
	return intrctl::run(argc, argv);
}
