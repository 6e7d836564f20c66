// SPDX-License-Identifier: GPL-2.0
/* The control device, and user memory. */
#include <linux/build_bug.h>
#include <linux/fs.h>
#include <linux/miscdevice.h>
#include <linux/module.h>
#include <linux/uaccess.h>

#include "platform/kernel_api.h"

/* What the kernel keeps pointers to while the device is registered. */
struct misc_storage {
	struct miscdevice device;
	struct file_operations fops;
};

static_assert(sizeof(struct misc_storage) <= sizeof_field(struct plat_misc_device, storage));
static_assert(__alignof__(struct misc_storage) <= __alignof__(struct plat_misc_device));

static struct misc_storage *storage_of(struct plat_misc_device *device)
{
	return (struct misc_storage *)device->storage;
}

/*
 * The commands are laid out alike for 32-bit callers, whose argument reaches
 * compat_ioctl zero-extended already. Without llseek a seek fails with -ESPIPE.
 */
noinline int plat_misc_register(struct plat_misc_device *device)
{
	struct misc_storage *storage = storage_of(device);

	*storage = (struct misc_storage){
		.device = {
			.minor = MISC_DYNAMIC_MINOR,
			.name = device->name,
			.fops = &storage->fops,
		},
		.fops = {
			.owner = THIS_MODULE,
			.open = device->open,
			.release = device->release,
			.unlocked_ioctl = device->ioctl,
			.compat_ioctl = device->ioctl,
		},
	};
	return misc_register(&storage->device);
}

noinline void plat_misc_deregister(struct plat_misc_device *device)
{
	misc_deregister(&storage_of(device)->device);
}

noinline unsigned long plat_copy_from_user(void *to, const void *user, unsigned long size)
{
	return copy_from_user(to, (const void __user *)user, size);
}

noinline unsigned long plat_copy_to_user(void *user, const void *from, unsigned long size)
{
	return copy_to_user((void __user *)user, from, size);
}
