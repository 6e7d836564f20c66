// SPDX-License-Identifier: GPL-2.0
//
// The sources of the CPLD simulation, and which of the virtual board's parent
// lines they drive: a combiner on a GPIO pin is on the pin's line, any other one of
// the board on the line of its own number.
#include "cfg_sources.h"

#include <optional>

#include "board/lines.h"

namespace cfg {
namespace {

// A direct combiner has no registers. In the simulation its leaf drives the
// line through a made-up always-enabled register of this chip, which no board has.
constexpr u32 direct_chip = 0xfffffffe;
constexpr u32 direct_status = 0x1000;

constexpr u32 gpio_pins = BOARD_LINES - BOARD_GPIO_LINE;

// Where the error of a combiner stands: one without a node is that of its slot leaves.
unsigned line_of(const combiner &combiner)
{
	return combiner.line ? combiner.line : combiner.leaves.front().line;
}

std::optional<u32> pin_line(const combiner &combiner, diagnostics &found)
{
	const u32 pin = combiner.gpio - BOARD_GPIO_BASE;

	if (combiner.gpio >= BOARD_GPIO_BASE && pin < gpio_pins)
		return BOARD_GPIO_LINE + pin;
	found.error(line_of(combiner), combiner.name() + ": gpio " + std::to_string(combiner.gpio) +
					       " is no pin of the virtual board; use " +
					       std::to_string(BOARD_GPIO_BASE) + " to " +
					       std::to_string(BOARD_GPIO_BASE + gpio_pins - 1));
	return {};
}

std::optional<u32> card_line(const document &document, const combiner &combiner, diagnostics &found)
{
	switch (combiner.int_type) {
	case DRV_INTR_GPIO:
		return pin_line(combiner, found);
	case DRV_INTR_COMBINER:
		found.error(line_of(combiner),
			    combiner.name() + ": is cascaded to leaf " +
				    hex(document.card_number()) + "/" +
				    std::to_string(CARD_LEAF_TYPE) +
				    " of another file; write its sources by hand, with that "
				    "leaf's line and levels in front");
		return {};
	default:
		found.error(line_of(combiner),
			    combiner.name() + ": has no parent line; set int_type to gpio");
		return {};
	}
}

std::optional<u32> parent_line(const document &document, const combiner &combiner,
			       diagnostics &found)
{
	const document_entry common = global_settings(document);

	if (!document.is_board())
		return card_line(document, combiner, found);
	if (common.get("cfg_type_bitmap") & DRV_INTR_CFG_GPIO &&
	    common.get("gpio_bitmap") >> combiner.id & 1)
		return pin_line(combiner, found);
	return combiner.id;
}

std::string source_level(u32 chip, const std::string &en, u32 status, u32 shift, u32 mask,
			 bool latched)
{
	return " " + hex(chip) + ":" + en + ":" + hex(status) + ":" + std::to_string(shift) + ":" +
	       hex(mask) + (latched ? ":latched" : ":level");
}

std::string source_command(const document &document, const combiner &combiner, const leaf &leaf,
			   u32 line)
{
	std::string text = "source " + display_name(combiner, leaf) + " " + hex(document.instance) +
			   " " + std::to_string(line);

	if (combiner.direct)
		return text + source_level(direct_chip, "-", direct_status + combiner.id,
					   leaf.number % 32, 1, false);
	for (const level &level : leaf.levels)
		text += source_level(level.chip_id,
				     level.en == config::NO_REGISTER ? "-" : hex(level.en),
				     level.status, level.shift, level.mask, level.wc != 0);
	return text;
}

} // namespace

std::string sources(const document &document, diagnostics &found)
{
	std::string out;

	for (const combiner &combiner : resolve(document)) {
		if (combiner.leaves.empty())
			continue;
		const std::optional<u32> line = parent_line(document, combiner, found);
		for (const leaf &leaf : combiner.leaves)
			out += source_command(document, combiner, leaf, line.value_or(0)) + "\n";
	}
	return out;
}

} // namespace cfg
