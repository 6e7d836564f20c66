// SPDX-License-Identifier: GPL-2.0
//
// Where combiners come from: what scenarios of the device tree, ACPI, GPIO pins
// and plug-in cards share.
#ifndef TESTS_SCENARIOS_SOURCES_H
#define TESTS_SCENARIOS_SOURCES_H

#include "rig.h"

namespace rig {

// Bits of cfg_type_bitmap.
inline constexpr u32 ACPI = 1, DTS = 2, GPIO = 4;

class Sources : public Scenario {
protected:
	// The global configuration; after configure() and before load().
	void use_sources(u32 cfg_type, u32 gpio_bitmap = 0, u32 acpi_bitmap = 0);

	// The ids of the combiners that are up, in the order of their bring-up.
	std::vector<u32> combiners();
	// Of these the ones of cards.
	std::vector<u32> cards();

	// Fires once the occurrence before is through, so that each makes a callback
	// of its own, however many there are.
	void fire_next(const leaf &leaf);
	bool through(const leaf &leaf);
	size_t delivered(const leaf &leaf);
	// How often fire_next fired, and that each made a callback.
	void expect_delivered(const leaf &leaf, size_t fired);

	// The driver's lines that hold one of these words.
	std::vector<std::string> log_with(const std::vector<std::string> &words);
};

// A combiner of the board behind a GPIO pin.
combiner make_gpio_combiner(u32 id, u32 pin, u32 leaves);
// The leaf becomes the one that the card's combiners with int_type 2 stand behind.
void make_card_leaf(leaf &leaf, u32 card_no);

} // namespace rig

#endif
