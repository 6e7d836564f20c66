// SPDX-License-Identifier: GPL-2.0
#include <gtest/gtest.h>

#include <cstring>

#include "port.h"

namespace {

// Formats that the compiler would rightly object to reach the routines through this.
int (*volatile scan)(const char *, const char *, ...) = sscanf_s;

TEST(strings, formatting_that_does_not_fit_leaves_an_empty_string_and_no_byte_outside)
{
	char text[8] = "xxxxxxx";

	EXPECT_EQ(sprintf_s(text, 5, "%u", 1234), 4);
	EXPECT_STREQ(text, "1234");
	EXPECT_LT(sprintf_s(text, 5, "%u", 12345), 0);
	EXPECT_STREQ(text, "");
	EXPECT_EQ(text[5], 'x');
	EXPECT_LT(sprintf_s(text, 0, "%s", ""), 0);
	EXPECT_LT(sprintf_s(nullptr, 5, "%s", ""), 0);
	EXPECT_LT(sprintf_s(text, static_cast<size_t>(-5), "%s", ""), 0);
}

TEST(strings, truncating_format_says_how_much_it_wrote_and_always_terminates)
{
	char text[8] = "xxxxxxx";

	EXPECT_EQ(snprintf_truncated_s(text, 5, "%s", "abcd"), 4);
	EXPECT_EQ(snprintf_truncated_s(text, 5, "%s", "abcdefgh"), 4);
	EXPECT_STREQ(text, "abcd");
	EXPECT_EQ(text[5], 'x');
	EXPECT_EQ(snprintf_truncated_s(text, 1, "%s", "abc"), 0);
	EXPECT_STREQ(text, "");
	EXPECT_LT(snprintf_truncated_s(text, 0, "%s", "abc"), 0);
}

TEST(strings, copy_larger_than_the_destination_copies_nothing)
{
	char from[4] = {1, 2, 3, 4}, to[4] = {};

	EXPECT_LT(memcpy_s(to, 3, from, 4), 0);
	EXPECT_EQ(to[0], 0);
	EXPECT_EQ(memcpy_s(to, 4, from, 4), 0);
	EXPECT_EQ(memcmp(to, from, 4), 0);
	EXPECT_LT(memcpy_s(nullptr, 4, from, 4), 0);
	EXPECT_LT(memcpy_s(to, 4, nullptr, 4), 0);
}

constexpr u32 untouched = 0xdeadbeef;

TEST(strings, scanner_converts_one_number)
{
	const struct {
		const char *format, *text;
		int result;
		u32 value;
	} cases[] = {
		{"name@%u", "name@12", 1, 12},
		{"name@%u", "name@12rest", 1, 12},
		{"name@%u", "name@", -1, untouched}, // input ends before a conversion
		{"name@%u", "na", -1, untouched}, // also inside a literal
		{"name@%u", "nome@1", 0, untouched}, // literal differs
		{"name@%u", "name@x", 0, untouched},
		{"%u", "-1", 0, untouched},
		{"%u", "4294967295", 1, 0xffffffff},
		{"%u", "4294967296", 0, untouched}, // no silent wrap
		{"%u", "99999999999999999999999999", 0, untouched},
		{"%d", "-2147483648", 1, 0x80000000},
		{"%d", "2147483648", 0, untouched},
		{"%d", "-", 0, untouched},
		{"%x", "0xFf", 1, 255},
		{"%x", "ffg", 1, 255},
		{"%x", "0x", 0, untouched},
		{"%i", "0x10", 1, 16},
		{"%i", "010", 1, 8},
		{"%i", "0", 1, 0},
		{"%u", "0x10", 1, 0},
		{"%2u", "123", 1, 12},
		{"%3x", "0x1f", 1, 1}, // the head counts
		{" a %u", "  a\t7", 1, 7},
		{"%%%u", "%5", 1, 5},
		{"%u", "   ", -1, untouched},
	};

	for (const auto &test : cases) {
		u32 value = untouched;

		EXPECT_EQ(scan(test.text, test.format, &value), test.result)
			<< test.format << " of \"" << test.text << '"';
		EXPECT_EQ(value, test.value) << test.format << " of \"" << test.text << '"';
	}
}

TEST(strings, scanner_counts_conversions_and_stops_at_the_first_that_fails)
{
	u32 first = untouched, second = untouched;

	EXPECT_EQ(scan("3:4", "%u:%u", &first, &second), 2);
	EXPECT_EQ(first * 10 + second, 34u);
	second = untouched;
	EXPECT_EQ(scan("3:", "%u:%u", &first, &second),
		  1); // end of input, but not before the first
	EXPECT_EQ(scan("3;4", "%u:%u", &first, &second), 1);
	EXPECT_EQ(second, untouched);
	EXPECT_EQ(scan("abc", "abc"), 0);
	EXPECT_LT(scan(nullptr, "%u", &first), 0);
}

TEST(strings, scanned_word_stays_within_its_width)
{
	char word[6] = "xxxxx";
	u32 number = 0;

	EXPECT_EQ(scan("  abcdef", "%3s", word), 1);
	EXPECT_STREQ(word, "abc");
	EXPECT_EQ(word[4], 'x');
	EXPECT_EQ(scan("ab 7", "%3s %u", word, &number), 2);
	EXPECT_STREQ(word, "ab");
	EXPECT_EQ(number, 7u);
}

TEST(strings, scanner_refuses_formats_whose_output_it_cannot_bound)
{
	char word[4] = "xxx";

	for (const char *format :
	     {"%s", "%0s", "%[a-z]", "%c", "%n", "%lu", "%99999999999s", "%"}) {
		EXPECT_LT(scan("abcdefgh", format, word), -1) << format;
		EXPECT_STREQ(word, "xxx") << format;
	}
}

} // namespace
