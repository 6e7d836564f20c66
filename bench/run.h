/* SPDX-License-Identifier: GPL-2.0 */
/* What the lines' controller tells the runner. */
#ifndef BENCH_RUN_H
#define BENCH_RUN_H

#include <linux/types.h>

/* With the line's descriptor lock held. */
void run_line_masked(u32 line, bool masked);

#endif
