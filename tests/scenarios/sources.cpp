// SPDX-License-Identifier: GPL-2.0
//
// Where combiners come from.
#include "sources.h"

#include <algorithm>
#include <cstring>

namespace rig {

void Sources::use_sources(u32 cfg_type, u32 gpio_bitmap, u32 acpi_bitmap)
{
	cfg::keys &common = table().nodes["global_cfg"]["common"];

	common["cfg_type_bitmap"] = cfg_type;
	common["gpio_bitmap"] = gpio_bitmap;
	common["acpi_bitmap"] = acpi_bitmap;
	install();
}

std::vector<u32> Sources::combiners()
{
	static constexpr char title[] = "combiner";
	std::vector<u32> ids;

	for (const std::string &line : testbed::lines_of(report(DRV_INTR_IOC_DBG_RUNTIME))) {
		if (line.starts_with(title))
			ids.push_back(static_cast<u32>(std::stoul(line.substr(strlen(title)))));
	}
	return ids;
}

std::vector<u32> Sources::cards()
{
	std::vector<u32> ids = combiners();

	std::erase_if(ids, [](u32 id) { return id < 32; });
	return ids;
}

// The mask closes the leaf and then clears its status, the unmask opens it last:
// a status that is clear, and an enable that is on later, mean both are through.
bool Sources::through(const leaf &leaf)
{
	const level &own = leaf.levels.back();

	return !field_is_set(leaf, own.status) && field_is_set(leaf, own.en);
}

void Sources::fire_next(const leaf &leaf)
{
	EXPECT_TRUE(eventually([&] { return through(leaf); })) << leaf.name << " hangs";
	fire(leaf);
}

size_t Sources::delivered(const leaf &leaf)
{
	const std::vector<event> got = events();

	return static_cast<size_t>(std::ranges::count_if(got, [&](const event &event) {
		return event.index == leaf.index && event.type == leaf.type;
	}));
}

void Sources::expect_delivered(const leaf &leaf, size_t fired)
{
	EXPECT_TRUE(eventually([&] { return through(leaf); })) << leaf.name << " hangs";
	EXPECT_EQ(delivered(leaf), fired) << leaf.name;
}

std::vector<std::string> Sources::log_with(const std::vector<std::string> &words)
{
	std::vector<std::string> lines = log();

	std::erase_if(lines, [&](const std::string &line) {
		return std::ranges::none_of(words, [&](const std::string &word) {
			return line.find(word) != std::string::npos;
		});
	});
	return lines;
}

combiner make_gpio_combiner(u32 id, u32 pin, u32 leaves)
{
	combiner combiner = make_combiner(id, leaves);

	place_at_gpio(combiner, pin);
	return combiner;
}

void make_card_leaf(leaf &leaf, u32 card_no)
{
	leaf.index = card_no;
	leaf.type = CARD_LEAF_TYPE;
}

} // namespace rig
