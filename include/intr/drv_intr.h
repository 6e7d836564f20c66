/* SPDX-License-Identifier: GPL-2.0 */
/*
 * Kernel interface of the interrupt combiner driver, for client modules.
 *
 * A leaf interrupt is named by (index_id, type) from the configuration. Result
 * codes of the int functions are positive: 0 success, 22 no such leaf or leaf
 * not usable, 14 mapping, request or release failed.
 */
#ifndef DRV_INTR_H
#define DRV_INTR_H

#include "intr/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Called once per occurrence. Where the leaf is configured with sync not 0 it
 * runs where the combiner dispatches: in hard-interrupt context, or in a
 * combiner's thread if that combiner, or one further out, is async. Otherwise
 * it runs in the leaf's own interrupt thread. In a thread it may sleep. It may
 * call drv_intr_enable, drv_intr_disable and the find functions. Registering or
 * unregistering its own leaf is refused with 22, as it would wait for itself. It
 * must not wait for the callback of another leaf that waits for it, which nobody
 * notices, nor add or remove combiners by whatever way (unregistering or unbinding
 * the device of one, pulling a card): their tear-down waits for this callback.
 */
typedef void (*drv_intr_handler)(u32 index_id, u32 type, void *data);

/*
 * Gate a leaf's delivery. They nest: each disable needs one enable. They are
 * counted for all users of the leaf together: an enable too many changes nothing
 * while nobody has the leaf disabled, and undoes somebody else's disable, such as
 * that of a message without answer, otherwise. Any context. 0, or 22 when the leaf
 * is unknown, not mapped, or the parent line of another combiner.
 */
int drv_intr_enable(u32 index_id, u32 type);
int drv_intr_disable(u32 index_id, u32 type);

/*
 * The leaf's virq (Linux interrupt number), mapped on first demand; 0 when there is
 * no such leaf or it cannot be mapped. Process context, may sleep. The virq
 * lasts until the leaf's last user goes. A module that requests it by itself, past
 * drv_intr_set_regist, has it until it frees it, and must do so before the
 * combiner goes: after that the virq never interrupts again, and stays taken.
 * bsp_mapping_irq takes the pair packed
 * into one key: type in bits 31-16, index_id in bits 15-0, where 0xffff stands
 * for 0xffffffff.
 */
u32 drv_mapping_irq(u32 index_id, u32 type);
u32 bsp_mapping_irq(u32 key);

/* The leaf's current virq without mapping it, 0 when there is none. Any context. */
u32 drv_find_mapping_irq(u32 index_id, u32 type);
u32 bsp_find_mapping(u32 key);

/*
 * Register the leaf's one callback. Maps and requests the leaf as needed. A
 * leaf that has a callback keeps it, which counts as success. Process context,
 * may sleep. 0; 14 when mapping or request failed or there is no such leaf.
 * 22, with an error line and nothing changed, for a null callback, whatever the
 * leaf (it would keep the leaf in use for nobody), and when called in an interrupt
 * or from the leaf's own callback.
 */
int drv_intr_set_regist(u32 index_id, u32 type, drv_intr_handler handler, void *data);

/*
 * Take the callback back. When this returns, the callback does not run and
 * will not run: the caller may unload. Process context, may sleep. 0; 22 for an
 * unknown leaf, 14 when release failed. Called in an interrupt or from the leaf's
 * own callback: 22, an error line, and the callback stays.
 */
int drv_intr_set_unregist(u32 index_id, u32 type);

#ifdef __cplusplus
}
#endif

#endif
