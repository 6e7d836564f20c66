// SPDX-License-Identifier: GPL-2.0
/*
 * Kernel entry of the XML configuration module, and the two lookups that it
 * exports.
 */
#include <linux/module.h>
#include "intr/siblings.h"
#include "xml.h"

EXPORT_SYMBOL(xml_get_element_value_u32);
EXPORT_SYMBOL(xml_is_entry_exist);

static int __init xml_module_init(void)
{
	return xml_start();
}

static void __exit xml_module_exit(void)
{
	xml_stop();
}

module_init(xml_module_init);
module_exit(xml_module_exit);

MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("XML configuration tables for interrupt combiners");
