// SPDX-License-Identifier: GPL-2.0
/*
 * Bounded string routines: each is given the size of what it writes to.
 *
 * The scanner is one of its own: the kernel's has neither an end-of-input
 * result nor overflow checks, and the same one serves both homes. It knows
 * literals, blanks, "%%", and
 *   %u %d %x %i   into 32 bits; a number that does not fit matches nothing
 *   %Ns           at most N characters, so that N + 1 bytes are enough
 * each number with an optional width. Anything else in a format is refused.
 */
#include "port.h"
#include "args.h"

#define SIZE_LIMIT 0x7fffffffu	/* more than this is a negative size gone wrong */

int memcpy_s(void *dest, size_t dest_size, const void *src, size_t count)
{
	if (!dest || !src || dest_size > SIZE_LIMIT || count > dest_size)
		return -EINVAL;
	memmove(dest, src, count);
	return 0;
}

static bool bad_dest(const char *dest, size_t dest_size, const char *format)
{
	return !dest || !format || !dest_size || dest_size > SIZE_LIMIT;
}

int sprintf_s(char *dest, size_t dest_size, const char *format, ...)
{
	va_list args;
	int length;

	if (bad_dest(dest, dest_size, format))
		return -EINVAL;
	va_start(args, format);
	length = vsnprintf(dest, dest_size, format, args);
	va_end(args);
	if (length >= 0 && (size_t)length < dest_size)
		return length;
	dest[0] = '\0';
	return length < 0 ? -EINVAL : -ERANGE;
}

int snprintf_truncated_s(char *dest, size_t dest_size, const char *format, ...)
{
	va_list args;
	int length;

	if (bad_dest(dest, dest_size, format))
		return -EINVAL;
	va_start(args, format);
	length = vsnprintf(dest, dest_size, format, args);
	va_end(args);
	if (length < 0) {
		dest[0] = '\0';
		return -EINVAL;
	}
	return (size_t)length < dest_size ? length : (int)dest_size - 1;
}

static bool is_blank(char c)
{
	return c == ' ' || (c >= '\t' && c <= '\r');
}

static const char *skip_blanks(const char *text)
{
	while (is_blank(*text))
		text++;
	return text;
}

struct conversion {
	char kind;
	u32 width;	/* 0 = not given */
};

#define WIDTH_LIMIT 65535u

/* format is just behind '%'. Return: behind the conversion, or NULL: not one of ours. */
static const char *parse_conversion(const char *format, struct conversion *conversion)
{
	bool given = false;
	u32 digit;

	conversion->width = 0;
	for (; port_digit(*format, 10, &digit); format++) {
		given = true;
		conversion->width = conversion->width * 10 + digit;
		if (conversion->width > WIDTH_LIMIT)
			return NULL;
	}
	if (given && !conversion->width)
		return NULL;
	conversion->kind = *format;
	switch (*format) {
	case 's':
		return given ? format + 1 : NULL;
	case 'u':
	case 'd':
	case 'x':
	case 'i':
		return format + 1;
	default:
		return NULL;
	}
}

/* The part of a number behind its sign. */
struct digits {
	const char *at;
	const char *end;	/* at most the width */
	u32 base;
};

/* A "0x" head belongs to %x and %i, a lone 0 head makes %i octal. */
static void take_base(struct digits *digits, char kind)
{
	const char *at = digits->at;
	bool hex_head = digits->end - at >= 2 && at[0] == '0' && (at[1] | 0x20) == 'x';

	digits->base = kind == 'x' ? 16 : 10;
	if (hex_head && (kind == 'x' || kind == 'i')) {
		digits->base = 16;
		digits->at += 2;
	} else if (kind == 'i' && digits->end != at && *at == '0') {
		digits->base = 8;
	}
}

/* Return: at least one digit, and the sum is at most limit. */
static bool take_digits(struct digits *digits, u32 limit, u32 *value)
{
	const char *first;
	u64 sum = 0;
	u32 digit;

	for (first = digits->at; digits->at != digits->end; digits->at++) {
		if (!port_digit(*digits->at, digits->base, &digit))
			break;
		sum = sum * digits->base + digit;
		if (sum > limit)
			return false;
	}
	*value = (u32)sum;
	return digits->at != first;
}

/* *text is not at its end. Return: a number stood there; *text is behind it. */
static bool scan_number(const char **text, struct conversion conversion, u32 *value)
{
	bool is_signed = conversion.kind == 'd' || conversion.kind == 'i';
	size_t room = strlen(*text);
	struct digits digits;
	bool negative;

	if (conversion.width && conversion.width < room)
		room = conversion.width;
	digits.at = *text;
	digits.end = *text + room;
	negative = is_signed && *digits.at == '-';
	if (negative)
		digits.at++;
	take_base(&digits, conversion.kind);
	if (!take_digits(&digits, is_signed ? 0x7fffffffu + negative : 0xffffffffu, value))
		return false;
	if (negative)
		*value = 0u - *value;
	*text = digits.at;
	return true;
}

/* *text is not at its end nor at a blank; dest holds width + 1 bytes. */
static void scan_word(const char **text, u32 width, char *dest)
{
	while (width-- && **text && !is_blank(**text))
		*dest++ = *(*text)++;
	*dest = '\0';
}

/* One literal character or run of blanks of the format. Return: it stood in the text, too. */
static bool scan_literal(const char **text, char literal)
{
	if (is_blank(literal)) {
		*text = skip_blanks(*text);
		return true;
	}
	if (**text != literal)
		return false;
	(*text)++;
	return true;
}

static int scan(const char *text, const char *format, va_list args)
{
	struct conversion conversion;
	int done = 0;
	u32 number;

	while (*format) {
		if (*format != '%' || format[1] == '%') {
			format += *format == '%';
			if (!scan_literal(&text, *format++))
				return (*text || done) ? done : -1;
			continue;
		}
		format = parse_conversion(format + 1, &conversion);
		if (!format)
			return -EINVAL;
		text = skip_blanks(text);
		if (!*text)
			return done ? done : -1;
		if (conversion.kind == 's') {
			scan_word(&text, conversion.width, va_arg(args, char *));
		} else {
			if (!scan_number(&text, conversion, &number))
				return done;
			*va_arg(args, u32 *) = number;
		}
		done++;
	}
	return done;
}

int sscanf_s(const char *buffer, const char *format, ...)
{
	va_list args;
	int ret;

	if (!buffer || !format)
		return -EINVAL;
	va_start(args, format);
	ret = scan(buffer, format, args);
	va_end(args);
	return ret;
}
