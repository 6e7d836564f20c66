// SPDX-License-Identifier: GPL-2.0
//
// Text in a buffer of fixed size, written piece by piece. Process context.
#ifndef INTR_CONTROL_TEXT_OUT_H
#define INTR_CONTROL_TEXT_OUT_H

#include "intr/siblings.h"

// What has been written of a report, and where it goes on.
struct text_out {
	char *buffer;
	u32 size;
	u32 length;

	[[nodiscard]] char *at() const { return buffer + length; }
	[[nodiscard]] u32 room() const { return size - length; }
	// Nothing more can be seen of what would follow.
	[[nodiscard]] bool full() const { return room() <= 1; }

	// written: what the formatter returned. A failure leaves nothing to rely on
	// behind `length`: the report ends there.
	void advance(int written)
	{
		if (written < 0 && size != 0) {
			size = length + 1;
			*at() = '\0';
		} else if (written > 0) {
			length += static_cast<u32>(written);
		}
	}
};

// A macro, so that the compiler checks every format against its arguments. The
// formatter cuts and returns what it wrote, so `length` never reaches `size`.
#define intr_print(out, ...) \
	(out).advance(snprintf_truncated_s((out).at(), (out).room(), __VA_ARGS__))

#endif
