// SPDX-License-Identifier: GPL-2.0
//
// intrctl as far as it goes without the driver: command lines and devices that
// are not the driver's. The build defines INTRCTL (the program).
#include <cstdio>
#include <string>

#include <gtest/gtest.h>
#include <sys/wait.h>

namespace {

struct outcome {
	int code;
	std::string text; // both outputs
};

outcome run(const std::string &arguments)
{
	const std::string command = "'" INTRCTL "' " + arguments + " 2>&1";
	outcome result{-1, ""};
	char part[4096];
	FILE *output = popen(command.c_str(), "r");

	if (!output)
		return result;
	for (size_t size; (size = fread(part, 1, sizeof(part), output)) > 0;)
		result.text.append(part, size);
	const int status = pclose(output);
	result.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
	return result;
}

// One line that begins with the program's name and holds this.
void expect_line(const std::string &arguments, int code, const std::string &fragment)
{
	const outcome result = run(arguments);

	EXPECT_EQ(result.code, code) << arguments << "\n" << result.text;
	EXPECT_EQ(result.text.find("intrctl: "), 0u) << arguments << "\n" << result.text;
	EXPECT_EQ(result.text.find('\n') + 1, result.text.size()) << arguments << "\n"
								  << result.text;
	EXPECT_NE(result.text.find(fragment), std::string::npos) << arguments << "\n"
								 << result.text;
}

// Wrong words are found before the device is looked for.
TEST(intrctl, names_the_word_that_is_wrong)
{
	static constexpr struct {
		const char *arguments, *fragment;
	} wrong[] = {
		{"", "see intrctl --help"},
		{"bogus", "\"bogus\" is unknown"},
		{"--bogus netlink-id", "--bogus"},
		{"netlink-id more", "more"},
		{"--device", "--device"},
		{"enable", "INDEX is required"},
		{"enable 1", "TYPE is required; see intrctl enable --help"},
		{"enable 1 2 3", "not expected: 3"},
		{"enable x 3", "INDEX: \"x\""},
		{"enable 1 010", "TYPE: \"010\""},
		{"enable '' 3", "INDEX: \"\""},
		{"enable 0x 3", "INDEX: \"0x\""},
		{"disable -1 3", "INDEX: \"-1\""},
		{"disable 1 +3", "TYPE: \"+3\""},
		{"disable 4294967296 3", "\"4294967296\" is no number from 0 to 4294967295"},
		{"disable 1 0x100000000", "\"0x100000000\""},
		{"disable 1 99999999999999999999999", "\"99999999999999999999999\""},
		{"watch", "INDEX TYPE"},
		{"watch 1 2 3", "the last INDEX has no TYPE"},
		{"watch 1 2 3 y", "\"y\""},
		{"watch 1 2 --num-events 0", "--num-events: \"0\""},
		{"watch 1 2 --idle-timeout 0", "--idle-timeout: \"0\""},
		{"watch 1 2 --idle-timeout -1", "--idle-timeout: \"-1\""},
		{"watch 1 2 --idle-timeout nan", "--idle-timeout: \"nan\""},
		{"watch 1 2 --idle-timeout 5s", "--idle-timeout: \"5s\""},
		{"watch 1 2 --format xml", "--format: \"xml\""},
		{"watch 1 2 --receive-buffer 0", "--receive-buffer: \"0\""},
		{"debug maybe", "maybe"},
		{"debug on x", "VIRQ: \"x\""},
		{"debug off 5", "5"},
		{"report", "see intrctl report --help"},
		{"report all", "\"all\" is unknown"},
		{"report virq", "VIRQ is required"},
		{"report cfg 5", "not expected: 5"},
		{"card 5", "\"5\" is unknown"},
		{"card up", "INST_ID,--card"},
		{"card up 5 --card 5", "INST_ID,--card"},
		{"card down --card 255", "--card: \"255\" is no number from 0 to 254"},
	};

	for (const auto &row : wrong)
		expect_line(row.arguments, 2, row.fragment);
}

TEST(intrctl, tells_devices_apart_that_are_not_the_drivers)
{
	expect_line("--device /nowhere/intr netlink-id", 1,
		    "/nowhere/intr: no such device; load the driver");
	expect_line("watch 0x12 3 4294967295 0 --device /nowhere/intr", 1, "no such device");
	expect_line("--device /dev/null debug on 0x2a", 1, "/dev/null: not the interrupt driver's");
	expect_line("--device /dev/null watch 1 2", 1, "/dev/null: not the interrupt driver's");
	expect_line("--device '" INTRCTL "' report cfg", 1, INTRCTL);
	expect_line("card up --card 0xfe --device /", 1, "/: cannot be opened");
}

TEST(intrctl, help_goes_to_the_standard_output)
{
	for (const char *command : {"", "watch", "enable", "disable", "netlink-id", "debug",
				    "debug on", "report virq", "card up"}) {
		const outcome result = run(std::string(command) + " --help 2>/dev/null");

		EXPECT_EQ(result.code, 0) << command;
		EXPECT_NE(result.text.find("Usage: intrctl"), std::string::npos) << command;
	}
}

} // namespace
