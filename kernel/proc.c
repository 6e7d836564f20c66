// SPDX-License-Identifier: GPL-2.0
/* Proc files over single-record sequence files. */
#include <linux/build_bug.h>
#include <linux/proc_fs.h>
#include <linux/seq_file.h>

#include "platform/kernel_api.h"

static_assert(sizeof(struct proc_ops) <= sizeof_field(struct plat_proc_ops, storage));
static_assert(__alignof__(struct proc_ops) <= __alignof__(struct plat_proc_ops));

noinline struct proc_dir_entry *plat_proc_mkdir(const char *name, struct proc_dir_entry *parent)
{
	return proc_mkdir(name, parent);
}

noinline struct proc_dir_entry *plat_proc_create_data(const char *name, u16 mode,
						      struct proc_dir_entry *parent,
						      struct plat_proc_ops *ops, void *data)
{
	struct proc_ops *kernel_ops = (struct proc_ops *)ops->storage;

	*kernel_ops = (struct proc_ops){
		.proc_open = ops->open,
		.proc_read = seq_read,
		.proc_write = ops->write,
		.proc_lseek = seq_lseek,
		.proc_release = single_release,
	};
	return proc_create_data(name, mode, parent, kernel_ops, data);
}

noinline void plat_proc_remove(struct proc_dir_entry *entry)
{
	proc_remove(entry);
}

noinline int plat_single_open(struct file *file, int (*show)(struct seq_file *seq, void *data),
			      void *data)
{
	return single_open(file, show, data);
}

noinline void plat_seq_puts(struct seq_file *seq, const char *text)
{
	seq_printf(seq, "%s", text);
}
