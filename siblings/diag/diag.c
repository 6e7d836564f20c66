// SPDX-License-Identifier: GPL-2.0
/* The diagnostics module: owns the proc directory that diagnostic entries lie in. */
#include "port.h"
#include "diag.h"

static struct proc_dir_entry *root;

int diag_start(void)
{
	root = port_proc_root_make("diag");
	return root ? 0 : -ENOMEM;
}

void diag_stop(void)
{
	port_proc_root_remove(root);
	root = NULL;
}

struct proc_dir_entry *diag_get_proc_root(void)
{
	return root;
}
