// SPDX-License-Identifier: GPL-2.0
/*
 * The virtual board's home in the kernel: parent lines on the machine's GIC and
 * on the board's GPIO controller, platform devices, and faults by a probe at a
 * function's entry.
 *
 * Line N below BOARD_GPIO_LINE is shared peripheral interrupt 100 + N, which
 * nothing on the emulated machine uses. A pending mark that software sets is
 * taken once and forgotten, for a level line too.
 */
#include <linux/acpi.h>
#include <linux/interrupt.h>
#include <linux/io.h>
#include <linux/irqdomain.h>
#include <linux/kprobes.h>
#include <linux/list.h>
#include <linux/module.h>
#include <linux/notifier.h>
#include <linux/of.h>
#include <linux/of_irq.h>
#include <linux/platform_device.h>
#include <linux/string.h>

#include "kernel/name_driver.h"
#include "kernel_gpio.h"
#include "port_board.h"

#define FIRST_SPI 100
#define SPI_CELL 0
#define LEVEL_HIGH_CELL 4

/* ACPI counts all interrupts of the GIC, of which 32 are not shared. */
#define FIRST_GSI (32 + FIRST_SPI)

#define DRIVER_NAME "irq_combiner"
#define DRIVER_MODULE "intr"

/* Parent lines. */

/* Mapped from start to end of the board, to the virqs that the firmware's devices get. */
static u32 line_virqs[BOARD_GPIO_LINE];

static u32 map_tree_line(struct device_node *gic, u32 line)
{
	struct of_phandle_args args = {
		.np = gic,
		.args_count = 3,
		.args = {SPI_CELL, FIRST_SPI + line, LEVEL_HIGH_CELL},
	};

	return irq_create_of_mapping(&args);
}

static int map_tree_lines(void)
{
	struct device_node *gic = of_find_compatible_node(NULL, NULL, "arm,gic-v3");
	u32 line;

	if (!gic)
		return -ENODEV;
	for (line = 0; line < BOARD_GPIO_LINE; line++)
		line_virqs[line] = map_tree_line(gic, line);
	of_node_put(gic);
	return 0;
}

static u32 map_acpi_line(u32 line)
{
	int virq = -ENODEV;

#ifdef CONFIG_ACPI
	virq = acpi_register_gsi(NULL, FIRST_GSI + line, ACPI_LEVEL_SENSITIVE, ACPI_ACTIVE_HIGH);
#endif
	return virq > 0 ? (u32)virq : 0;
}

static int map_acpi_lines(void)
{
	u32 line;

	for (line = 0; line < BOARD_GPIO_LINE; line++)
		line_virqs[line] = map_acpi_line(line);
	return 0;
}

static int map_lines(void)
{
	return acpi_disabled ? map_tree_lines() : map_acpi_lines();
}

/*
 * An ACPI device gets its virqs once, at boot, and mappings are not counted:
 * those that it shares with the board must outlive the board.
 */
static void unmap_lines(void)
{
	u32 line;

	for (line = acpi_disabled ? 0 : BOARD_ACPI_LINES; line < BOARD_GPIO_LINE; line++)
		irq_dispose_mapping(line_virqs[line]);
}

u32 port_line_virq(u32 line)
{
	if (line >= BOARD_LINES)
		return 0;
	return line < BOARD_GPIO_LINE ? line_virqs[line] : board_gpio_virq(line - BOARD_GPIO_LINE);
}

void port_line_set_pending(u32 line, int pending)
{
	u32 virq = port_line_virq(line);

	if (virq && line >= BOARD_GPIO_LINE)
		board_gpio_set_pending(line - BOARD_GPIO_LINE, pending != 0);
	else if (virq)
		irq_set_irqchip_state(virq, IRQCHIP_STATE_PENDING, pending != 0);
}

/* Devices. */

struct board_device {
	struct list_head node;
	struct platform_device *device;
};

static LIST_HEAD(devices);
PORT_MUTEX(devices_lock);

static struct board_device *find_device(const char *name)
{
	struct board_device *entry;

	list_for_each_entry(entry, &devices, node) if (strcmp(dev_name(&entry->device->dev),
							      name) == 0) return entry;
	return NULL;
}

/* The driver is named outright: the device's own name is the combiner's. */
static int fill_device(struct platform_device *device, u32 virq)
{
	struct resource irq = DEFINE_RES_IRQ(virq);
	int ret = name_driver(device, DRIVER_NAME);

	if (ret || !virq)
		return ret;
	return platform_device_add_resources(device, &irq, 1);
}

static struct platform_device *make_device(const char *name, u32 virq)
{
	struct platform_device *device = platform_device_alloc(name, PLATFORM_DEVID_NONE);
	int ret;

	if (!device)
		return ERR_PTR(-ENOMEM);
	ret = fill_device(device, virq);
	if (!ret)
		ret = platform_device_add(device);
	if (!ret)
		return device;
	platform_device_put(device);
	return ERR_PTR(ret);
}

static bool is_bound(struct device *device)
{
	bool bound;

	device_lock(device);
	bound = device->driver != NULL;
	device_unlock(device);
	return bound;
}

/* Called with devices_lock held. */
static int add_device(const char *name, u32 virq)
{
	struct board_device *entry;

	if (find_device(name))
		return -EEXIST;
	entry = port_alloc(sizeof(*entry));
	if (!entry)
		return -ENOMEM;
	entry->device = make_device(name, virq);
	if (IS_ERR(entry->device)) {
		int ret = PTR_ERR(entry->device);

		port_free(entry);
		return ret;
	}
	list_add_tail(&entry->node, &devices);
	return is_bound(&entry->device->dev);
}

int port_device_add(const char *name, u32 virq)
{
	int ret;

	port_mutex_lock(&devices_lock);
	ret = add_device(name, virq);
	port_mutex_unlock(&devices_lock);
	return ret;
}

static void remove_device(struct board_device *entry)
{
	list_del(&entry->node);
	platform_device_unregister(entry->device);
	port_free(entry);
}

int port_device_del(const char *name)
{
	struct board_device *entry;

	port_mutex_lock(&devices_lock);
	entry = find_device(name);
	if (entry)
		remove_device(entry);
	port_mutex_unlock(&devices_lock);
	return entry ? 0 : -ENOENT;
}

static void remove_all_devices(void)
{
	struct board_device *entry, *next;

	port_mutex_lock(&devices_lock);
	list_for_each_entry_safe(entry, next, &devices, node) remove_device(entry);
	port_mutex_unlock(&devices_lock);
}

/* Faults. A probe goes with the driver's code, so it is made when the driver comes, before its
 * start. */

static struct fault {
	char symbol[80]; /* with the module's name in front; empty: none wanted */
	u32 nth;
	long ret;
	atomic_t calls;
	bool armed;
	bool driver_loaded;
	struct kprobe probe;
} fault;

PORT_MUTEX(fault_lock);

/* At the entry the return address is still in its register: going there skips the function. */
static int at_entry(struct kprobe *probe, struct pt_regs *regs)
{
	if ((u32)atomic_inc_return(&fault.calls) != fault.nth)
		return 0;
	regs->regs[0] = fault.ret;
	instruction_pointer_set(regs, regs->regs[30]);
	return 1;
}
NOKPROBE_SYMBOL(at_entry);

/* Called with fault_lock held, as the others below. */
static int arm(void)
{
	int ret;

	memset(&fault.probe, 0, sizeof(fault.probe));
	fault.probe.symbol_name = fault.symbol;
	fault.probe.pre_handler = at_entry;
	ret = register_kprobe(&fault.probe);
	fault.armed = ret == 0;
	return ret;
}

static void disarm(void)
{
	if (fault.armed)
		unregister_kprobe(&fault.probe);
	fault.armed = false;
}

static int set_fault(const char *symbol, u32 nth, long ret)
{
	int failed = 0;

	disarm();
	snprintf(fault.symbol, sizeof(fault.symbol), DRIVER_MODULE ":%s", symbol);
	fault.nth = nth;
	fault.ret = ret;
	atomic_set(&fault.calls, 0);
	if (fault.driver_loaded)
		failed = arm();
	if (failed)
		fault.symbol[0] = '\0';
	return failed;
}

int port_fault(const char *symbol, u32 nth, long ret)
{
	int failed;

	port_mutex_lock(&fault_lock);
	failed = set_fault(symbol, nth, ret);
	port_mutex_unlock(&fault_lock);
	return failed;
}

void port_fault_off(void)
{
	port_mutex_lock(&fault_lock);
	disarm();
	fault.symbol[0] = '\0';
	fault.nth = 0;
	atomic_set(&fault.calls, 0);
	port_mutex_unlock(&fault_lock);
}

int port_fault_count(u32 *calls)
{
	int hit;

	port_mutex_lock(&fault_lock);
	*calls = atomic_read(&fault.calls);
	hit = fault.nth > 0 && *calls >= fault.nth;
	port_mutex_unlock(&fault_lock);
	return hit;
}

static void driver_comes(void)
{
	fault.driver_loaded = true;
	if (fault.symbol[0] && arm())
		port_printk(1, "board: the wanted fault names no function of the driver");
}

static void driver_goes(void)
{
	fault.driver_loaded = false;
	disarm();
}

static int on_module(struct notifier_block *block, unsigned long state, void *data)
{
	const struct module *module = data;

	if (strcmp(module->name, DRIVER_MODULE) != 0)
		return NOTIFY_DONE;
	port_mutex_lock(&fault_lock);
	if (state == MODULE_STATE_COMING)
		driver_comes();
	if (state == MODULE_STATE_GOING)
		driver_goes();
	port_mutex_unlock(&fault_lock);
	return NOTIFY_DONE;
}

static struct notifier_block module_watch = {.notifier_call = on_module};

int port_line_masked(u32 line)
{
	bool masked = false;
	int ret = irq_get_irqchip_state(port_line_virq(line), IRQCHIP_STATE_MASKED, &masked);

	return ret ? ret : masked;
}

u32 port_irq_cpus(u32 virq)
{
	struct irq_data *data = irq_get_irq_data(virq);

	return data ? (u32)cpumask_bits(irq_data_get_effective_affinity_mask(data))[0] : 0;
}

static irqreturn_t on_request(int virq, void *request)
{
	board_request_taken(request);
	return IRQ_HANDLED;
}

int port_irq_request(u32 virq, struct board_request *request)
{
	/* As the intr driver has it, or a kernel that threads handlers lets only one of them share. */
	return request_irq(virq, on_request, IRQF_SHARED | IRQF_NO_THREAD, "board", request);
}

void port_irq_free(u32 virq, struct board_request *request)
{
	free_irq(virq, request);
}

/* Outside the kernel's memory map, so it is mapped as a device, like the driver does. */
static void __iomem *map_register(u32 address)
{
	if (address < BOARD_MMIO_BASE || address - BOARD_MMIO_BASE >= BOARD_MMIO_SIZE ||
	    address % 4 != 0)
		return NULL;
	return ioremap(address, sizeof(u32));
}

int port_mmio_read(u32 address, u32 *value)
{
	void __iomem *reg = map_register(address);

	if (!reg)
		return -EINVAL;
	*value = readl(reg);
	iounmap(reg);
	return 0;
}

int port_mmio_write(u32 address, u32 value)
{
	void __iomem *reg = map_register(address);

	if (!reg)
		return -EINVAL;
	writel(value, reg);
	iounmap(reg);
	return 0;
}

static int start_lines(void)
{
	int ret = map_lines();

	if (ret)
		return ret;
	ret = board_gpio_start();
	if (ret)
		unmap_lines();
	return ret;
}

static void stop_lines(void)
{
	board_gpio_stop();
	unmap_lines();
}

int port_board_start(void)
{
	int ret = start_lines();

	if (ret)
		return ret;
	ret = register_module_notifier(&module_watch);
	if (ret)
		stop_lines();
	return ret;
}

void port_board_stop(void)
{
	unregister_module_notifier(&module_watch);
	remove_all_devices();
	stop_lines();
}
