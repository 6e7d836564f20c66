/* SPDX-License-Identifier: GPL-2.0 */
/* What the virtual board needs of its home beyond port.h. Each home defines these. */
#ifndef INTR_BOARD_PORT_BOARD_H
#define INTR_BOARD_PORT_BOARD_H

#include "lines.h"
#include "port.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The virq of a parent line; 0 = none. */
u32 port_line_virq(u32 line);
/* Makes a parent line pending or withdraws it. Any context. */
void port_line_set_pending(u32 line, int pending);

/* The CPUs that take an interrupt, a bit mask; 0 without a descriptor. Process context. */
u32 port_irq_cpus(u32 virq);

/*
 * Whether the line is masked at its controller, whatever its disable depth says; -errno
 * where the controller does not tell. Process context.
 */
int port_line_masked(u32 line);

/*
 * Requests an interrupt as any other driver does, shared, in hard-interrupt context
 * where the line is one of the machine; every occurrence calls taken. 0 or -errno.
 * Process context.
 */
struct board_request;
void board_request_taken(struct board_request *request);
int port_irq_request(u32 virq, struct board_request *request);
void port_irq_free(u32 virq, struct board_request *request);

/*
 * A platform device for the driver "irq_combiner", with one interrupt or none
 * (virq 0). Process context. Adding gives 1: a driver took it, 0: none did, or
 * -errno (-EEXIST: the board has a device of this name).
 */
int port_device_add(const char *name, u32 virq);
int port_device_del(const char *name);

/*
 * Makes the nth call from now of the driver's platform function symbol return
 * ret without being carried out. One fault at a time: a new one replaces it. A
 * driver that is not loaded yet is armed when it is. Process context.
 */
int port_fault(const char *symbol, u32 nth, long ret);
void port_fault_off(void);
/* Calls seen since the fault was set; returns 1 once it has struck. */
int port_fault_count(u32 *calls);

/*
 * The board's CPU-side registers: plain 32-bit words at these physical
 * addresses, in memory that is reserved for the board. -EINVAL outside them or
 * unaligned. Process context.
 */
#define BOARD_MMIO_BASE 0x5ff00000u
#define BOARD_MMIO_SIZE 0x1000u
int port_mmio_read(u32 address, u32 *value);
int port_mmio_write(u32 address, u32 value);

/* Whether the caller's CPU takes interrupts. Any context. */
int port_irqs_enabled(void);

int port_board_start(void);
void port_board_stop(void);

#ifdef __cplusplus
}
#endif

#endif
