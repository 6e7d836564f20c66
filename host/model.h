/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The kernel model of the host home, as tests, the sibling modules' port layer
 * and the virtual board see it. The driver sees only platform/kernel_api.h.
 *
 * Two threads play the CPUs that take hard interrupts: a parent line that is
 * pending, unmasked and not being handled is taken by one of them. Threads of
 * a test, of the driver (kthreads) and of the interrupt core (interrupt
 * threads) are threads of the process. Interrupts are never taken on top of
 * such a thread, so a lock that is taken with interrupts on and from a handler
 * too does not deadlock here; everything else is meant to be as in the kernel.
 *
 * What the kernel answers with a warning, or would not survive, is a bug: one
 * line on stderr saying what and who, then abort().
 */
#ifndef INTR_HOST_MODEL_H
#define INTR_HOST_MODEL_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * A test starts the model first and stops it last. For host_stop
 * anything left behind is a bug (host_check_leftovers); then it forgets devices,
 * lines, symbols, registers, faults and counters.
 */
void host_start(void);
void host_stop(void);

/*
 * A bug for memory, register mappings, interrupt mappings, requests,
 * chained handlers, domains, firmware nodes, threads, registered drivers, symbol
 * references, netlink sockets and messages, misc devices, proc entries and the
 * open files and ports of processes that are still there. Returns their number
 * (0 = clean) where the bug handler lets it return.
 */
int host_check_leftovers(void);

/*
 * Tests of the checks: handler is called instead of print and abort. When it
 * returns, the offending call does nothing or goes on as the kernel would.
 * Null restores the default. Returns the handler that was active.
 */
typedef void (*host_bug_handler)(const char *text);
host_bug_handler host_set_bug_handler(host_bug_handler handler);

/* For the port layer's own sleeping operations: a bug where the caller may not sleep. */
void host_might_sleep(const char *what);

int host_irqs_disabled(void); /* those of the calling thread */

/* "hardirq", "softirq" or "thread:<task name>". */
void host_context(char *buffer, size_t size);

/* Runs call(arg) soon, once, in hard-interrupt context on a model CPU. Any context. */
void host_queue_hardirq_call(void (*call)(void *arg), void *arg);

/*
 * Waits until no line is deliverable or being handled, no call or replay is
 * queued and every kernel thread sleeps in schedule(). 0, or -110 when that
 * did not come within the time.
 */
int host_wait_idle(uint32_t timeout_ms);

/*
 * Parent lines, inputs 0 to 63 of the root interrupt controller, mapped on
 * first use. Pending is a latch: gone when the line is taken, kept while it is
 * masked, withdrawn with 0; of a line never mapped nothing happens. Any context,
 * but not with the line's descriptor lock held.
 */
#define HOST_LINES 64
uint32_t host_line_virq(uint32_t line);
void host_line_set_pending(uint32_t line, int pending);
int host_line_pending(uint32_t line);
int host_line_masked(uint32_t line); /* at the controller, whatever the depth says */

/*
 * A moment that a test forces: the CPU that takes the line waits before it looks for the
 * line's handler, until hold is 0 again. taken: it does so now.
 */
void host_line_hold(uint32_t line, int hold);
int host_line_taken(uint32_t line);

/*
 * Makes a GPIO pin of this global number, which interrupts on a line that was not
 * used before; on none when there is no such line. The line's chip then has no
 * end-of-interrupt operation. 0, or -17 when number or line are taken.
 */
int host_gpio_map(uint32_t gpio, uint32_t line);

/* Descriptors. depth: -1 without a descriptor. */
int host_irq_depth(uint32_t virq);
uint32_t host_irq_count(uint32_t virq); /* occurrences on all CPUs, wrapping */
void host_disable_irq_nosync(uint32_t virq);
void host_enable_irq(uint32_t virq); /* the kernel's: a bug at depth 0 */
int host_irq_set_affinity(uint32_t virq,
			  unsigned long cpu_mask); /* 0 or -errno, as a user's write */
unsigned long host_irq_affinity(uint32_t virq); /* effective CPU mask */
/* request_irq, shared, and free_irq of a driver other than the one under test. */
int host_irq_request(uint32_t virq, int (*handler)(int virq, void *cookie), const char *name,
		     void *cookie);
void host_irq_free(uint32_t virq, void *cookie);
char *host_interrupts_text(void); /* like /proc/interrupts; the caller frees it */

int host_thread_exists(const char *name);
int host_thread_is_realtime(const char *name); /* 0 also without such a thread */
char *host_kernel_log(void); /* lines printed since the start; the caller frees it */

/*
 * The driver as a module: load runs start, and while that fails waits for the
 * files and ports that hold the module; unload runs exit. Nothing can be opened
 * while exit runs. load: start's result, -17 when loaded already. unload: 0, -2
 * when not loaded, -11 while something holds the module. A test that calls start
 * and exit itself has a module that nobody holds.
 */
int host_module_load(int (*start)(void));
int host_module_unload(void (*exit)(void));

/*
 * Platform devices, probed in creation order. compatible "acpi:ID" makes an
 * ACPI device, matched with acpi_id; any other is matched with of_compatible.
 * Null is a device added at run time for the driver "irq_combiner" (driver
 * override), without a firmware node. A virq of 0 is an absent interrupt. 0, -17
 * when the name is taken, -19 when there is no such device. bound: 1, 0, or -19.
 */
int host_device_add(const char *name, const char *compatible, const uint32_t *virqs, size_t count);
int host_device_del(const char *name);
int host_device_bound(const char *name);

/*
 * As a user writes to the driver's files bind and unbind: takes the device from
 * the driver that has this name on the bus, or has it probed. 0, -2 without such
 * a driver, -19 when the device does not match it or, for unbind, is not bound to
 * it, -16 when it is bound, or what the probe returned.
 */
int host_device_unbind(const char *driver, const char *device);
int host_device_bind(const char *driver, const char *device);
char *host_driver_names(void); /* on the bus, sorted, one a line; the caller frees it */

/* GPL-only exported symbols. add: -17 when there; del: -2 when absent, -16 while referenced. */
int host_symbol_add(const char *name, void *symbol);
int host_symbol_del(const char *name);

/*
 * Netlink sockets of processes. open: a handle above 0, or -93 when the driver has
 * no socket of this protocol; receive_buffer as SO_RCVBUF takes it, 0 for the
 * default. receive: the length of the next message, cut to size, or -11 when none
 * came in time. That a message was lost, which the kernel reports by one failing
 * receive, is not reported here. All: -9 for a handle that is not open (port: 0).
 */
int host_netlink_open(uint32_t protocol, uint32_t receive_buffer);
uint32_t host_netlink_port(int handle);
long host_netlink_receive(int handle, void *buffer, size_t size, uint32_t timeout_ms);
int host_netlink_close(int handle);

/*
 * Files of processes, by handles above 0. open: -2 when there is no such device or
 * file, or what the driver's open returned. A proc path begins below the directory
 * of another module, if it lies in one: "intr/cfg". Files are readable; writing
 * makes them writable too. Buffers and the argument are user memory: they may be
 * unreadable. read and write: bytes done, or -errno; seek: the position, or -errno.
 */
int host_misc_open(const char *name);
long host_misc_ioctl(int handle, unsigned int cmd, void *argument);
int host_misc_close(int handle);
int host_proc_open(const char *path, int writing);
long host_proc_read(int handle, void *buffer, size_t size);
long host_proc_write(int handle, const void *buffer, size_t size);
long host_proc_seek(int handle, long position);
int host_proc_close(int handle);

/*
 * CPU registers: 32-bit words by physical address, 0 until written. A mapping
 * that would cover a failing address is refused. The log holds every readl and
 * writel in order; host_mmio_log returns how many there are and copies at most max.
 */
struct host_mmio_access {
	int write;
	uint32_t value;
	unsigned long long physical;
};
void host_mmio_set(unsigned long long physical, uint32_t value);
uint32_t host_mmio_get(unsigned long long physical);
void host_mmio_fail(unsigned long long physical, int fail);
size_t host_mmio_log(struct host_mmio_access *log, size_t max);

/*
 * Fault injection, one fault at a time: the nth call from now of symbol (a
 * "plat_..." name; nth 1 = the next one, 0 = only count) is skipped and returns
 * ret, or null or 0 where its result is a pointer or a number; a netlink message
 * to be sent is freed nevertheless. -22: no such symbol, or one that cannot fail.
 * count gives the calls since the fault was set and whether it was hit; both may
 * be null.
 */
int host_fault(const char *symbol, uint32_t nth, long ret);
void host_fault_off(void);
void host_fault_count(uint32_t *calls, int *hit);

/* As "threadirqs" on the kernel's command line; off after every start. */
void host_force_irq_threads(int forced);

/*
 * Calls call(arg) whenever a thread of the model comes to this place, in its context and
 * under the locks that it holds there, until it is given null: "plat_...", this function
 * is called and has done nothing yet; "line_moves", the root controller has masked a line
 * to move it; "depth_seen", the driver has seen that an interrupt is disabled, and will
 * enable it; "irq_enabled", it has done so. A bug for any other.
 */
void host_at(const char *place, void (*call)(void *arg), void *arg);

/* Calls of one "plat_..." function since the start; a bug for a name that is none. */
unsigned long host_calls(const char *symbol);

#ifdef __cplusplus
}
#endif

#endif
