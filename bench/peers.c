// SPDX-License-Identifier: GPL-2.0
/*
 * The peers: other ways to turn one line back into its leaves, and other ways to
 * tell a process. Each is written as its own developer would, without waste, and
 * does what the driver does for an occurrence: leaf disabled, status cleared on both
 * levels, handler, leaf enabled.
 */
#include <linux/eventfd.h>
#include <linux/err.h>
#include <linux/interrupt.h>
#include <linux/irq.h>
#include <linux/irqchip/chained_irq.h>
#include <linux/irqdomain.h>
#include <linux/regmap.h>
#include <linux/wait.h>
#include <net/net_namespace.h>
#include <net/netlink.h>

#include "intr/siblings.h"
#include "regs.h"
#include "uapi/intr.h"

#define BASE (BENCH_PEER_LINE * BENCH_LINE_REGS)
#define GROUPS (BENCH_LEAVES / 8)

static struct bench_para set; /* what is up; method BENCH_RUNNER: an empty handler */
static bool is_up;
static struct irq_domain *domain;
static u32 virqs[BENCH_LEAVES];
static u32 requested;
static u8 enabled[GROUPS];
static struct bench_field fields[BENCH_LEAVES][BENCH_LEVELS];

static struct sock *netlink;
static struct eventfd_ctx *eventfd;
static DECLARE_WAIT_QUEUE_HEAD(readers);
static u32 events;

/* The flat handler. */

static void flat_handle_group(u32 group)
{
	unsigned long pending = regs_read(BASE + 2 * group + 1) & enabled[group];
	u32 bit;

	for_each_set_bit(bit, &pending, 8) generic_handle_domain_irq(domain, group * 8 + bit);
}

static void flat_handler(struct irq_desc *desc)
{
	struct irq_chip *chip = irq_desc_get_chip(desc);
	u32 word, bit;

	chained_irq_enter(chip, desc);
	for (word = 0; word * 64 < set.leaves; word++) {
		unsigned long groups = regs_read(BASE + BENCH_GROUPS_AT + 2 * word + 1);

		for_each_set_bit(bit, &groups, 8) flat_handle_group(word * 8 + bit);
	}
	chained_irq_exit(chip, desc);
}

static void flat_enable(u32 leaf, bool on)
{
	u32 group = leaf / 8, bit = 1u << leaf % 8;

	enabled[group] = on ? enabled[group] | bit : enabled[group] & ~bit;
	regs_write(BASE + 2 * group, enabled[group]);
}

static void flat_mask(struct irq_data *data)
{
	flat_enable(data->hwirq, false);
}

static void flat_unmask(struct irq_data *data)
{
	flat_enable(data->hwirq, true);
}

static void flat_ack(struct irq_data *data)
{
	u32 group = data->hwirq / 8;

	regs_write(BASE + 2 * group + 1, 1u << data->hwirq % 8);
	regs_write(BASE + BENCH_GROUPS_AT + 2 * (group / 8) + 1, 1u << group % 8);
}

static struct irq_chip flat_chip = {
	.name = "flat",
	.irq_mask = flat_mask,
	.irq_ack = flat_ack,
	.irq_unmask = flat_unmask,
};

/* The leaf walk: nothing is remembered but the configuration. */

static bool walk_field(u32 reg, u32 shift)
{
	u32 value;

	return drv_cpld_read(0, 0, (struct drv_intr_reg_desc){reg, shift}, 1, &value) == 0 &&
	       value != 0;
}

static bool walk_is_active(u32 leaf)
{
	const struct bench_field *field = fields[leaf], *end = field + set.levels;

	for (; field < end; field++)
		if (!walk_field(field->en, field->shift) ||
		    !walk_field(field->status, field->shift))
			return false;
	return true;
}

static void walk_handler(struct irq_desc *desc)
{
	struct irq_chip *chip = irq_desc_get_chip(desc);
	u32 leaf;

	chained_irq_enter(chip, desc);
	for (leaf = 0; leaf < set.leaves; leaf++)
		if (walk_is_active(leaf))
			generic_handle_irq(virqs[leaf]);
	chained_irq_exit(chip, desc);
}

static void walk_enable(u32 leaf, u32 on)
{
	const struct bench_field *own = &fields[leaf][set.levels - 1];

	drv_cpld_write(0, 0, (struct drv_intr_reg_desc){own->en, own->shift}, 1, on);
}

/* The reads flush posted writes. */
static void walk_clear(u32 leaf)
{
	u32 level, value;

	for (level = set.levels; level-- > 0;) {
		const struct bench_field *field = &fields[leaf][level];

		drv_cpld_reg_read(0, 0, field->status, &value);
		drv_cpld_reg_write(0, 0, field->status, 1u << field->shift);
		drv_cpld_reg_read(0, 0, field->status, &value);
	}
}

static void walk_mask(struct irq_data *data)
{
	walk_enable(data->hwirq, 0);
	walk_clear(data->hwirq);
}

static void walk_unmask(struct irq_data *data)
{
	walk_clear(data->hwirq);
	walk_enable(data->hwirq, 1);
}

static struct irq_chip walk_chip = {
	.name = "walk",
	.irq_mask = walk_mask,
	.irq_unmask = walk_unmask,
};

/* The runner's own cost. */
static void empty_handler(struct irq_desc *desc)
{
	run_leaf_served();
}

/* The register-map controller: its registers 0 to 31 are status, 64 on enable, 128 the groups. */

#define REGMAP_ENABLE 64
#define REGMAP_MAIN 128

static struct regmap *map;
static struct regmap_irq_chip_data *map_irqs;
static struct regmap_irq map_leaves[BENCH_LEAVES];

static u32 map_reg(u8 reg)
{
	if (reg >= REGMAP_MAIN)
		return BASE + BENCH_GROUPS_AT + 2 * (reg - REGMAP_MAIN) + 1;
	return reg >= REGMAP_ENABLE ? BASE + 2 * (reg - REGMAP_ENABLE) : BASE + 2 * reg + 1;
}

static int map_read(void *context, const void *reg, size_t reg_size, void *value, size_t size)
{
	size_t i;

	for (i = 0; i < size; i++)
		((u8 *)value)[i] = regs_read(map_reg(*(const u8 *)reg + i));
	return 0;
}

static int map_write(void *context, const void *data, size_t size)
{
	regs_write(map_reg(*(const u8 *)data), ((const u8 *)data)[1]);
	return 0;
}

static const struct regmap_bus map_bus = {.read = map_read, .write = map_write};
static const struct regmap_config map_config = {.name = "bench", .reg_bits = 8, .val_bits = 8};
static struct regmap_irq_chip map_chip;

static int regmap_up(struct device *dev)
{
	u32 leaf;
	int ret;

	map = regmap_init(dev, &map_bus, NULL, &map_config);
	if (IS_ERR(map))
		return PTR_ERR(map);
	for (leaf = 0; leaf < set.leaves; leaf++)
		map_leaves[leaf] =
			(struct regmap_irq){.reg_offset = leaf / 8, .mask = 1u << leaf % 8};
	map_chip = (struct regmap_irq_chip){
		.name = "bench",
		.mask_base = REGMAP_ENABLE,
		.mask_invert = 1,
		.use_ack = 1,
		.num_regs = DIV_ROUND_UP(set.leaves, 8),
		.irqs = map_leaves,
		.num_irqs = set.leaves,
		.main_status = REGMAP_MAIN,
		.num_main_regs = set.method == BENCH_REGMAP_MAIN,
		.num_main_status_bits = DIV_ROUND_UP(set.leaves, 8),
	};
	ret = regmap_add_irq_chip(map, line_virq(BENCH_PEER_LINE), IRQF_ONESHOT, 0, &map_chip,
				  &map_irqs);
	if (ret)
		regmap_exit(map);
	for (leaf = 0; !ret && leaf < set.leaves; leaf++)
		virqs[leaf] = regmap_irq_get_virq(map_irqs, leaf);
	return ret;
}

static void regmap_down(void)
{
	regmap_del_irq_chip(line_virq(BENCH_PEER_LINE), map_irqs);
	regmap_exit(map);
}

/* The leaves' handlers. A process is told once the leaf is disabled, until it answers. */

bool peer_is_bare(void)
{
	return set.wake == BENCH_WAKE_BARE;
}

void peer_send(void)
{
	struct sk_buff *message = nlmsg_new(sizeof(struct drv_intr_nl_leaf), GFP_KERNEL);
	struct nlmsghdr *head;

	if (!message)
		return;
	head = nlmsg_put(message, 0, 0, 0, sizeof(struct drv_intr_nl_leaf), 0);
	*(struct drv_intr_nl_leaf *)nlmsg_data(head) =
		(struct drv_intr_nl_leaf){set.leaves - 1, BENCH_TYPE};
	nlmsg_unicast(netlink, message, set.count);
}

static irqreturn_t leaf_handler(int virq, void *data)
{
	if (set.wake == BENCH_WAKE_RUNNER) {
		run_leaf_served();
		return IRQ_HANDLED;
	}
	disable_irq_nosync(virq);
	if (set.wake == BENCH_WAKE_NETLINK)
		peer_send();
	if (set.wake == BENCH_WAKE_EVENTFD)
		eventfd_signal(eventfd, 1);
	if (set.wake == BENCH_WAKE_READ) {
		WRITE_ONCE(events, events + 1);
		wake_up_interruptible(&readers);
	}
	return IRQ_HANDLED;
}

int peer_wait(void)
{
	static u32 seen;
	int ret = wait_event_interruptible(readers, READ_ONCE(events) != seen);

	seen = READ_ONCE(events);
	return ret;
}

void peer_enable_last(void)
{
	if (is_up && set.wake != BENCH_WAKE_BARE)
		enable_irq(virqs[set.leaves - 1]);
}

/* Their interrupts. */

static int leaf_map(struct irq_domain *of, unsigned int virq, irq_hw_number_t leaf)
{
	irq_set_chip_and_handler(virq, set.method == BENCH_WALK ? &walk_chip : &flat_chip,
				 handle_level_irq);
	irq_set_status_flags(virq, IRQ_LEVEL);
	return 0;
}

static const struct irq_domain_ops leaf_ops = {.map = leaf_map};

static int chained_up(irq_flow_handler_t handler)
{
	u32 leaf;

	domain = irq_domain_add_linear(NULL, set.leaves, &leaf_ops, NULL);
	if (!domain)
		return -ENOMEM;
	for (leaf = 0; leaf < set.leaves; leaf++)
		virqs[leaf] = irq_create_mapping(domain, leaf);
	irq_set_chained_handler(line_virq(BENCH_PEER_LINE), handler);
	return 0;
}

static int request_leaves(void)
{
	bool threaded = set.wake == BENCH_WAKE_NETLINK || set.method == BENCH_REGMAP ||
			set.method == BENCH_REGMAP_MAIN;
	int ret = 0;

	for (requested = 0; requested < set.leaves; requested++) {
		ret = request_threaded_irq(virqs[requested], threaded ? NULL : leaf_handler,
					   threaded ? leaf_handler : NULL,
					   threaded ? IRQF_ONESHOT : 0, "bench", &set);
		if (ret)
			break;
	}
	return ret;
}

/* The outer levels stay enabled. */
static void set_levels(u32 leaf)
{
	u32 level;

	for (level = 0; level < set.levels; level++) {
		fields[leaf][level] = bench_level(BENCH_PEER_LINE, leaf, set.levels, level);
		if (level + 1 < set.levels)
			regs.word[fields[leaf][level].en] |= 1u << fields[leaf][level].shift;
	}
}

static int method_up(struct device *dev)
{
	line_reset(BENCH_PEER_LINE);
	switch (set.method) {
	case BENCH_RUNNER:
		return chained_up(empty_handler);
	case BENCH_FLAT:
		return chained_up(flat_handler);
	case BENCH_WALK:
		return chained_up(walk_handler);
	default:
		return regmap_up(dev);
	}
}

static void method_down(void)
{
	u32 leaf;

	if (set.method == BENCH_REGMAP || set.method == BENCH_REGMAP_MAIN) {
		regmap_down();
		return;
	}
	irq_set_chained_handler(line_virq(BENCH_PEER_LINE), NULL);
	for (leaf = 0; leaf < set.leaves; leaf++)
		irq_dispose_mapping(virqs[leaf]);
	irq_domain_remove(domain);
}

static int wake_up_set(void)
{
	struct netlink_kernel_cfg none = {.groups = 0};

	netlink = netlink_kernel_create(&init_net, BENCH_NETLINK, &none);
	if (!netlink)
		return -ENOMEM;
	eventfd = set.wake == BENCH_WAKE_EVENTFD ? eventfd_ctx_fdget(set.fd) : NULL;
	return IS_ERR(eventfd) ? PTR_ERR(eventfd) : 0;
}

void peer_stop(void)
{
	if (!is_up)
		return;
	while (requested > 0)
		free_irq(virqs[--requested], &set);
	method_down();
	if (!IS_ERR_OR_NULL(eventfd))
		eventfd_ctx_put(eventfd);
	if (netlink)
		netlink_kernel_release(netlink);
	eventfd = NULL;
	netlink = NULL;
	is_up = false;
}

int peer_start(const struct bench_para *para, struct device *dev)
{
	u32 leaf;
	int ret;

	if (is_up || !para->leaves || para->leaves > BENCH_LEAVES || para->method == BENCH_INTR ||
	    para->method > BENCH_REGMAP_MAIN || !para->levels || para->levels > BENCH_LEVELS)
		return -EINVAL;
	set = *para;
	memset(enabled, 0, sizeof(enabled));
	memset(&regs.word[BASE], 0, BENCH_LINE_REGS * sizeof(regs.word[0]));
	for (leaf = 0; leaf < set.leaves; leaf++)
		set_levels(leaf);
	ret = method_up(dev);
	if (ret)
		return ret;
	is_up = true;
	ret = wake_up_set();
	ret = ret ? ret : request_leaves();
	if (ret)
		peer_stop();
	return ret;
}
