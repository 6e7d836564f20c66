// SPDX-License-Identifier: GPL-2.0
//
// Messages of the driver, all written through the logging module. Macros, so
// that the compiler checks every format against its arguments.
//
// intr_trace is for interrupt paths: nothing is formatted while the gate is
// closed. virq is the interrupt that the path concerns, the leaf's on leaf
// paths, the parent's in a combiner's handler and thread.
#ifndef INTR_CORE_LOG_H
#define INTR_CORE_LOG_H

#include "core/atomic.h"
#include "core/records.h"
#include "intr/siblings.h"

inline constexpr u32 DRV_INTR_MODULE_ID = 62;
inline constexpr char DRV_INTR_MODULE_NAME[] = "intr";
inline constexpr u32 DRV_LOG_ERROR = 1;
inline constexpr u32 DRV_LOG_INFO = 2;

#define intr_err(...) drv_log_record(DRV_INTR_MODULE_ID, DRV_LOG_ERROR, 0, __VA_ARGS__)
#define intr_info(...) drv_log_record(DRV_INTR_MODULE_ID, DRV_LOG_INFO, 0, __VA_ARGS__)
#define intr_trace(virq, ...) intr_trace_if(drv_intr_trace_enabled(virq), __VA_ARGS__)
// With the gate looked at before, once for all lines of a function.
#define intr_trace_if(traced, ...) \
	do { \
		if (traced) [[unlikely]] \
			intr_info(__VA_ARGS__); \
	} while (0)

// The switches are plain words that process context may change at any time.
[[nodiscard]] inline bool drv_intr_is_tracing()
{
	return read_once(g_drv_intr_ctrl.int_debug_switch) != 0;
}

[[nodiscard]] inline bool drv_intr_trace_enabled(u32 virq)
{
	if (!drv_intr_is_tracing()) [[likely]]
		return false;
	const u32 only = read_once(g_drv_intr_ctrl.debug_irq);
	return only == 0 || only == virq;
}

#endif
