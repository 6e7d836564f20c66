/* SPDX-License-Identifier: GPL-2.0 */
/*
 * Arguments and numbers of a control command line. Portable; include "port.h" first.
 */
#ifndef SIBLINGS_ARGS_H
#define SIBLINGS_ARGS_H

/*
 * Take the next blank-separated argument off *line; a longer one than arg holds
 * is cut, so that it matches nothing. Return: false at the end of the line.
 */
static inline bool port_arg(const char **line, char *arg, size_t size)
{
	const char *at = *line;
	size_t length = 0;

	while (*at == ' ' || *at == '\t')
		at++;
	if (!*at)
		return false;
	for (; *at && *at != ' ' && *at != '\t'; at++)
		if (length + 1 < size)
			arg[length++] = *at;
	arg[length] = '\0';
	*line = at;
	return true;
}

/* Nothing but blanks is left of the line. */
static inline bool port_line_ends(const char *line)
{
	while (*line == ' ' || *line == '\t')
		line++;
	return !*line;
}

static inline bool port_digit(char c, u32 base, u32 *digit)
{
	if (c >= '0' && c <= '9')
		*digit = (u32)(c - '0');
	else if ((c | 0x20) >= 'a' && (c | 0x20) <= 'f')
		*digit = (u32)((c | 0x20) - 'a') + 10;
	else
		return false;
	return *digit < base;
}

/* A whole argument that is a decimal or 0x hexadecimal number of 32 bits. */
static inline bool port_number(const char *arg, u32 *value)
{
	u32 base = 10, digit;
	u64 sum = 0;

	if (arg[0] == '0' && (arg[1] | 0x20) == 'x') {
		base = 16;
		arg += 2;
	}
	if (!*arg)
		return false;
	for (; *arg; arg++) {
		if (!port_digit(*arg, base, &digit))
			return false;
		sum = sum * base + digit;
		if (sum > 0xffffffffu)
			return false;
	}
	*value = (u32)sum;
	return true;
}

/* A result code to inject: not 0, signed. */
static inline bool port_result_code(const char *arg, s32 *value)
{
	bool negative = *arg == '-';
	u32 number;

	if (!port_number(arg + (negative ? 1 : 0), &number) || !number || number > 0x7fffffffu)
		return false;
	*value = negative ? -(s32)number : (s32)number;
	return true;
}

static inline bool port_arg_number(const char **line, u32 *value)
{
	char arg[16];

	return port_arg(line, arg, sizeof(arg)) && port_number(arg, value);
}

static inline bool port_arg_result(const char **line, s32 *value)
{
	char arg[16];

	return port_arg(line, arg, sizeof(arg)) && port_result_code(arg, value);
}

/* The reply to a wrong command: "FILE: what is wrong; what would be right". Return: -EINVAL. */
static inline __attribute__((format(printf, 3, 4))) int port_refuse(char *reply, size_t size,
								    const char *format, ...)
{
	va_list args;

	va_start(args, format);
	vsnprintf(reply, size, format, args);
	va_end(args);
	return -EINVAL;
}

#endif
