// SPDX-License-Identifier: GPL-2.0
/*
 * The backplane module: says which backplane the board sits in. The simulated
 * board has the type that the control file "backplane" was given last.
 */
#include "port.h"
#include "args.h"
#include "backplane.h"

PORT_LOCK(state_lock);
static u32 backplane_type;	/* under state_lock, as the next */
static s32 failure;		/* result instead of a type; 0 = none */

int drv_backplane_get_type(u32 *type)
{
	unsigned long flags;
	int ret;

	if (!type)
		return -EINVAL;
	flags = port_lock(&state_lock);
	ret = failure;
	if (!ret)
		*type = backplane_type;
	port_unlock(&state_lock, flags);
	return ret;
}

static void set_state(u32 type, s32 result)
{
	unsigned long flags = port_lock(&state_lock);

	backplane_type = type;
	failure = result;
	port_unlock(&state_lock, flags);
}

static int command(const char *line, char *reply, size_t reply_size)
{
	const char *at = line;
	char arg[8];
	u32 type;
	s32 ret;

	if (!port_arg(&at, arg, sizeof(arg)))
		arg[0] = '\0';
	if (!strcmp(arg, "type") && port_arg_number(&at, &type) && port_line_ends(at)) {
		set_state(type, 0);
		return 0;
	}
	if (!strcmp(arg, "fail") && port_arg_result(&at, &ret) && port_line_ends(at)) {
		set_state(0, ret);
		return 0;
	}
	return port_refuse(reply, reply_size,
			   "backplane: \"%.80s\" is not understood; write \"type VALUE\" or \"fail RET\"",
			   line);
}

static void show(struct port_out *out)
{
	u32 type = 0;
	int ret = drv_backplane_get_type(&type);

	if (ret)
		port_printf(out, "fail=%d\n", ret);
	else
		port_printf(out, "type=0x%x\n", type);
}

static struct port_ctl control = { .name = "backplane", .command = command, .show = show };

int backplane_start(void)
{
	set_state(0, 0);
	return port_ctl_register(&control);
}

void backplane_stop(void)
{
	port_ctl_unregister(&control);
}
