// SPDX-License-Identifier: GPL-2.0
/* The virtual board's home on the host: everything it needs is an operation of the kernel model. */
#include "host_board.h"

#include "discovery/acpi_id.h"
#include "model.h"
#include "port_board.h"

#define FIRMWARE_DEVICES 4
#define COMPATIBLE "quorvatek,irq_combiner"
#define ACPI_DEVICE DRV_INTR_ACPI_ID ":00"
#define ACPI_COMPATIBLE "acpi:" DRV_INTR_ACPI_ID
#define NAME_MAX_SIZE 64
#define ADDED_MAX 64

/* The names of the devices that the board added itself, which go when it stops. */
static char added[ADDED_MAX][NAME_MAX_SIZE];
PORT_MUTEX(added_lock);

static char *find_added(const char *name)
{
	u32 at;

	for (at = 0; at < ADDED_MAX; at++)
		if (strcmp(added[at], name) == 0)
			return added[at];
	return NULL;
}

u32 port_line_virq(u32 line)
{
	return line < BOARD_LINES ? host_line_virq(line) : 0;
}

void port_line_set_pending(u32 line, int pending)
{
	if (line < BOARD_LINES)
		host_line_set_pending(line, pending);
}

int port_line_masked(u32 line)
{
	return line < BOARD_LINES ? host_line_masked(line) : -EINVAL;
}

u32 port_irq_cpus(u32 virq)
{
	return (u32)host_irq_affinity(virq);
}

static int on_request(int virq, void *request)
{
	(void)virq;
	board_request_taken(request);
	return 1; /* handled */
}

int port_irq_request(u32 virq, struct board_request *request)
{
	return host_irq_request(virq, on_request, "board", request);
}

void port_irq_free(u32 virq, struct board_request *request)
{
	host_irq_free(virq, request);
}

/* Called with added_lock held. */
static int add_device(const char *name, u32 virq)
{
	char *free_name = find_added("");
	int ret;

	if (!name[0] || strlen(name) >= NAME_MAX_SIZE)
		return -EINVAL;
	if (!free_name)
		return -ENOMEM;
	ret = host_device_add(name, NULL, &virq, 1);
	if (ret)
		return ret;
	strcpy(free_name, name);
	return host_device_bound(name);
}

int port_device_add(const char *name, u32 virq)
{
	int ret;

	port_mutex_lock(&added_lock);
	ret = add_device(name, virq);
	port_mutex_unlock(&added_lock);
	return ret;
}

int port_device_del(const char *name)
{
	char *entry;

	port_mutex_lock(&added_lock);
	entry = name[0] ? find_added(name) : NULL;
	if (entry) {
		host_device_del(name);
		entry[0] = '\0';
	}
	port_mutex_unlock(&added_lock);
	return entry ? 0 : -ENOENT;
}

int port_fault(const char *symbol, u32 nth, long ret)
{
	return host_fault(symbol, nth, ret);
}

void port_fault_off(void)
{
	host_fault_off();
}

int port_fault_count(u32 *calls)
{
	int hit;

	host_fault_count(calls, &hit);
	return hit;
}

int port_irqs_enabled(void)
{
	return !host_irqs_disabled();
}

static bool is_mmio(u32 address)
{
	return address >= BOARD_MMIO_BASE && address - BOARD_MMIO_BASE < BOARD_MMIO_SIZE &&
	       address % 4 == 0;
}

int port_mmio_read(u32 address, u32 *value)
{
	if (!is_mmio(address))
		return -EINVAL;
	*value = host_mmio_get(address);
	return 0;
}

int port_mmio_write(u32 address, u32 value)
{
	if (!is_mmio(address))
		return -EINVAL;
	host_mmio_set(address, value);
	return 0;
}

/* The lines beyond the interrupt controller's are on GPIO pins. */
int port_board_start(void)
{
	u32 line;
	int ret;

	for (line = BOARD_GPIO_LINE; line < BOARD_LINES; line++) {
		ret = host_gpio_map(BOARD_GPIO_BASE + line - BOARD_GPIO_LINE, line);
		if (ret)
			return ret;
	}
	return 0;
}

void port_board_stop(void)
{
	u32 at;

	for (at = 0; at < ADDED_MAX; at++)
		port_device_del(added[at]);
}

void host_firmware_board(void)
{
	char name[NAME_MAX_SIZE];
	u32 at, virq;

	for (at = 0; at < FIRMWARE_DEVICES; at++) {
		snprintf(name, sizeof(name), "soc:irq_combiner@%u", at);
		virq = host_line_virq(at);
		host_device_add(name, COMPATIBLE, &virq, 1);
	}
}

void host_firmware_board_acpi(void)
{
	u32 virqs[BOARD_ACPI_LINES];
	u32 line;

	for (line = 0; line < BOARD_ACPI_LINES; line++)
		virqs[line] = host_line_virq(line);
	host_device_add(ACPI_DEVICE, ACPI_COMPATIBLE, virqs, BOARD_ACPI_LINES);
}
