// SPDX-License-Identifier: GPL-2.0
/*
 * Load and unload of the test client, and the driver's functions as it calls
 * them: through the table that intr_link.ko handed over, or, without one, as if
 * no leaf were configured.
 */
#include <linux/irqflags.h>
#include <linux/module.h>
#include <linux/notifier.h>
#include <linux/srcu.h>
#include <linux/string.h>

#include "board/board.h"
#include "client_intr.h"
#include "board/port_board.h"

#define DRIVER "intr"
#define NO_SUCH_LEAF 22

/* Callbacks call the driver in any context, registering sleeps: hence a sleepable section. */
DEFINE_STATIC_SRCU(intr_srcu);
static const struct client_intr __rcu *current_intr;

static const struct client_intr *get_intr(int *token)
{
	*token = srcu_read_lock(&intr_srcu);
	return srcu_dereference(current_intr, &intr_srcu);
}

static void put_intr(int token)
{
	srcu_read_unlock(&intr_srcu, token);
}

int drv_intr_enable(u32 index_id, u32 type)
{
	int token;
	const struct client_intr *intr = get_intr(&token);
	int ret = intr ? intr->enable(index_id, type) : NO_SUCH_LEAF;

	put_intr(token);
	return ret;
}

int drv_intr_disable(u32 index_id, u32 type)
{
	int token;
	const struct client_intr *intr = get_intr(&token);
	int ret = intr ? intr->disable(index_id, type) : NO_SUCH_LEAF;

	put_intr(token);
	return ret;
}

u32 drv_mapping_irq(u32 index_id, u32 type)
{
	int token;
	const struct client_intr *intr = get_intr(&token);
	u32 virq = intr ? intr->mapping_irq(index_id, type) : 0;

	put_intr(token);
	return virq;
}

u32 bsp_mapping_irq(u32 key)
{
	int token;
	const struct client_intr *intr = get_intr(&token);
	u32 virq = intr ? intr->bsp_mapping_irq(key) : 0;

	put_intr(token);
	return virq;
}

u32 drv_find_mapping_irq(u32 index_id, u32 type)
{
	int token;
	const struct client_intr *intr = get_intr(&token);
	u32 virq = intr ? intr->find_mapping_irq(index_id, type) : 0;

	put_intr(token);
	return virq;
}

u32 bsp_find_mapping(u32 key)
{
	int token;
	const struct client_intr *intr = get_intr(&token);
	u32 virq = intr ? intr->bsp_find_mapping(key) : 0;

	put_intr(token);
	return virq;
}

int drv_intr_set_regist(u32 index_id, u32 type, drv_intr_handler handler, void *data)
{
	int token;
	const struct client_intr *intr = get_intr(&token);
	int ret = intr ? intr->set_regist(index_id, type, handler, data) : NO_SUCH_LEAF;

	put_intr(token);
	return ret;
}

int drv_intr_set_unregist(u32 index_id, u32 type)
{
	int token;
	const struct client_intr *intr = get_intr(&token);
	int ret = intr ? intr->set_unregist(index_id, type) : -ENODEV;

	put_intr(token);
	return ret;
}

int port_irqs_enabled(void)
{
	return !irqs_disabled();
}

/* Leaves may call back into this module from its first link to the driver's end. */
static bool pinned;

void client_set_intr(const struct client_intr *intr)
{
	if (intr && !pinned) {
		__module_get(THIS_MODULE);
		pinned = true;
	}
	rcu_assign_pointer(current_intr, intr);
	synchronize_srcu(&intr_srcu);
}
EXPORT_SYMBOL_GPL(client_set_intr);

static int on_module(struct notifier_block *block, unsigned long state, void *data)
{
	const struct module *module = data;

	if (state != MODULE_STATE_GOING || strcmp(module->name, DRIVER) != 0)
		return NOTIFY_DONE;
	client_forget_all();
	if (pinned)
		module_put(THIS_MODULE);
	pinned = false;
	return NOTIFY_DONE;
}

static struct notifier_block module_watch = { .notifier_call = on_module };

static int __init client_module_init(void)
{
	int ret = register_module_notifier(&module_watch);

	if (ret)
		return ret;
	ret = client_start();
	if (ret)
		unregister_module_notifier(&module_watch);
	return ret;
}

static void __exit client_module_exit(void)
{
	client_stop();
	unregister_module_notifier(&module_watch);
}

module_init(client_module_init);
module_exit(client_module_exit);

MODULE_LICENSE("GPL");
MODULE_AUTHOR("intr maintainers");
MODULE_DESCRIPTION("Test client of the interrupt combiner driver");
