// SPDX-License-Identifier: GPL-2.0
//
// Finding a leaf without walking the leaves: hash tables with open addressing.
//
// Readers take no lock; they are inside an srcu_reader, or hold g_drv_intr_lock as the
// writer does. What keeps them right:
// - A leaf is complete before its slot shows it, and is freed only after readers that
//   saw it there are gone.
// - A leaf never moves within its table. One that is removed leaves a mark, over which a
//   reader goes on to what was entered behind it; only a slot that was never used ends
//   the search, and there is always one. A later leaf may take the place of a mark.
// - A table that is too full is replaced by a larger one and not written to any more;
//   readers that are in it finish there. Its memory waits for the next tear-down, which
//   waits for all readers anyway.
#include "core/leaf_index.h"

static constexpr u32 FEW_LEAVES = 20; // for which no memory is allocated
static constexpr size_t SMALLEST_TABLE = 256; // bytes

// In front of its slots: together a power of two, as the allocator has it.
struct leaf_table {
	u32 slot_count;
	u32 used; // slots with a leaf or a mark
	leaf_table *replaced; // next in the list of replaced tables

	[[nodiscard]] drv_intr_irq_info **slots()
	{
		return reinterpret_cast<drv_intr_irq_info **>(this + 1);
	}
};

static constexpr u32 slots_in(size_t bytes)
{
	return static_cast<u32>((bytes - sizeof(leaf_table)) / sizeof(drv_intr_irq_info *));
}

// At two thirds a search looks at two slots, or at five when it finds nothing.
static constexpr u64 leaves_in(u32 slot_count)
{
	return u64{slot_count} * 2 / 3;
}

struct small_table {
	leaf_table table = {slots_in(SMALLEST_TABLE), 0, nullptr};
	drv_intr_irq_info *slots[slots_in(SMALLEST_TABLE)] = {};
};
static_assert(leaves_in(slots_in(SMALLEST_TABLE)) == FEW_LEAVES);
static_assert(offsetof(small_table, slots) == sizeof(leaf_table));

static drv_intr_irq_info *removed_mark()
{
	return reinterpret_cast<drv_intr_irq_info *>(1);
}

// Configurations count upwards, and pointers end in zeros: every bit of the key
// has to reach the upper half.
static u32 mix(u64 key)
{
	key ^= key >> 32;
	key *= 0x9e3779b97f4a7c15;
	key ^= key >> 29;
	key *= 0xbf58476d1ce4e5b9;
	return static_cast<u32>(key >> 32);
}

struct name_key {
	u32 index_id;
	u32 type;

	static name_key of(const drv_intr_irq_info &leaf)
	{
		return {leaf.hwirq_cfg.index_id, leaf.hwirq_cfg.type};
	}
	[[nodiscard]] bool is_of(const drv_intr_irq_info &leaf) const
	{
		return leaf.hwirq_cfg.index_id == index_id && leaf.hwirq_cfg.type == type;
	}
	[[nodiscard]] u32 hash() const { return mix(u64{index_id} << 32 | type); }
};

struct hwirq_key {
	const drv_intr_combiner *combiner;
	u32 hwirq;

	static hwirq_key of(const drv_intr_irq_info &leaf)
	{
		return {leaf.combiner, leaf.hwirq_cfg.hwirq};
	}
	[[nodiscard]] bool is_of(const drv_intr_irq_info &leaf) const
	{
		return leaf.combiner == combiner && leaf.hwirq_cfg.hwirq == hwirq;
	}
	[[nodiscard]] u32 hash() const
	{
		const auto address = reinterpret_cast<unsigned long>(combiner);

		return mix(address + u64{hwirq} * 0x9e3779b97f4a7c15);
	}
};

// To be freed after the next synchronize_srcu.
static constinit leaf_table *replaced_tables;

template <typename Key> class leaf_index {
public:
	[[nodiscard]] drv_intr_irq_info *find(const Key &key) const
	{
		return search(*load_acquire(table_), key).leaf;
	}

	[[nodiscard]] int reserve(u32 count)
	{
		if (table_->used + u64{count} <= leaves_in(table_->slot_count))
			return 0;
		size_t bytes = SMALLEST_TABLE;
		while (leaves_in(slots_in(bytes)) < live_ + u64{count})
			bytes *= 2;
		auto *larger = static_cast<leaf_table *>(plat_kzalloc(bytes));
		if (!larger)
			return -ENOMEM;
		larger->slot_count = slots_in(bytes);
		for (u32 i = 0; i < table_->slot_count; i++) {
			drv_intr_irq_info *leaf = table_->slots()[i];

			if (leaf && leaf != removed_mark())
				enter(*larger, *leaf);
		}
		replace(larger);
		return 0;
	}

	void insert(drv_intr_irq_info &leaf)
	{
		if (enter(*table_, leaf))
			live_++;
		else
			left_out_++;
	}

	void remove(drv_intr_combiner &combiner)
	{
		if (left_out_ != 0)
			promote_successors(combiner);
		for (drv_intr_irq_info &leaf : combiner.irq_info_list) {
			const place at = search(*table_, Key::of(leaf));

			if (at.leaf == &leaf) {
				store_release(*at.slot, removed_mark());
				live_--;
			} else {
				left_out_--;
			}
		}
		if (live_ == 0)
			start_anew();
	}

private:
	// Where the leaf of this key is; without one, where it may be entered.
	struct place {
		drv_intr_irq_info **slot;
		drv_intr_irq_info *leaf;
	};

	static place search(leaf_table &table, const Key &key)
	{
		drv_intr_irq_info **marked = nullptr;
		u32 i = static_cast<u32>(u64{key.hash()} * table.slot_count >> 32);

		for (;;) {
			drv_intr_irq_info **slot = table.slots() + i;
			drv_intr_irq_info *leaf = load_acquire(*slot);

			if (!leaf)
				return {marked ? marked : slot, nullptr};
			if (leaf == removed_mark())
				marked = marked ? marked : slot;
			else if (key.is_of(*leaf))
				return {slot, leaf};
			if (++i == table.slot_count)
				i = 0;
		}
	}

	// False: a leaf of this key is there already.
	static bool enter(leaf_table &table, drv_intr_irq_info &leaf)
	{
		const place at = search(table, Key::of(leaf));

		if (at.leaf)
			return false;
		if (!*at.slot)
			table.used++;
		store_release(*at.slot, &leaf);
		return true;
	}

	// In one step from the first leaf to the next one: a name that two combiners
	// have is never without a leaf while one of them goes.
	void promote_successors(const drv_intr_combiner &leaving)
	{
		for (drv_intr_combiner &combiner : drv_intr_get_ctrl()->combiner_list) {
			if (combiner.indexed == 0)
				continue;
			for (drv_intr_irq_info &leaf : combiner.irq_info_list) {
				const place at = search(*table_, Key::of(leaf));

				if (at.leaf && at.leaf->combiner == &leaving)
					store_release(*at.slot, &leaf);
			}
		}
	}

	void replace(leaf_table *by)
	{
		leaf_table *old = table_;

		store_release(table_, by);
		if (old == &small_.table)
			return;
		old->replaced = replaced_tables;
		replaced_tables = old;
	}

	// Nothing is in the table but marks. A reader that is still in the small one, of
	// before it was replaced, may find nothing there: nothing is there to be found.
	void start_anew()
	{
		for (drv_intr_irq_info *&slot : small_.slots)
			store_release(slot, static_cast<drv_intr_irq_info *>(nullptr));
		small_.table.used = 0;
		if (table_ != &small_.table)
			replace(&small_.table);
	}

	leaf_table *table_ = &small_.table;
	u32 live_ = 0; // leaves in the table
	u32 left_out_ = 0; // leaves whose key another one came first with
	small_table small_;
};

static constinit leaf_index<name_key> by_name;
static constinit leaf_index<hwirq_key> by_hwirq;

int drv_intr_index_reserve(u32 count)
{
	const int ret = by_name.reserve(count);

	return ret == 0 ? by_hwirq.reserve(count) : ret;
}

void drv_intr_index_leaves(drv_intr_combiner &combiner)
{
	for (drv_intr_irq_info &leaf : combiner.irq_info_list) {
		by_name.insert(leaf);
		by_hwirq.insert(leaf);
	}
	combiner.indexed = 1;
}

void drv_intr_unindex_leaves(drv_intr_combiner &combiner)
{
	if (combiner.indexed == 0)
		return;
	by_name.remove(combiner);
	by_hwirq.remove(combiner);
	combiner.indexed = 0;
}

void drv_intr_free_replaced_tables()
{
	while (leaf_table *table = replaced_tables) {
		replaced_tables = table->replaced;
		kfree(table);
	}
}

drv_intr_irq_info *drv_intr_get_irq_info_by_index_type(u32 index_id, u32 type)
{
	return by_name.find({index_id, type});
}

drv_intr_irq_info *drv_intr_get_irq_info_by_hwirq(drv_intr_combiner &combiner, u32 hwirq)
{
	return by_hwirq.find({&combiner, hwirq});
}

static drv_intr_irq_info *first_unmapped_leaf()
{
	for (drv_intr_combiner &combiner : drv_intr_get_ctrl()->combiner_list) {
		for (drv_intr_irq_info &leaf : combiner.irq_info_list) {
			if (read_once(leaf.virq) == 0)
				return &leaf;
		}
	}
	return nullptr;
}

// The kernel knows the domain and hwirq of each virq. The domain may be another driver's,
// and gone by now: its address is compared and nothing else. The leaf has the last word:
// a virq that it does not have any more, or not yet, is not its.
drv_intr_irq_info *drv_intr_get_irq_info_by_virq(u32 virq)
{
	const irq_domain *domain;
	u32 hwirq;

	if (virq == 0)
		return first_unmapped_leaf();
	if (irq_get_mapping(virq, &domain, &hwirq) != 0)
		return nullptr;
	for (drv_intr_combiner &combiner : drv_intr_get_ctrl()->combiner_list) {
		if (read_once(combiner.domain) != domain)
			continue;
		drv_intr_irq_info *leaf = drv_intr_get_irq_info_by_hwirq(combiner, hwirq);

		return leaf && read_once(leaf->virq) == virq ? leaf : nullptr;
	}
	return nullptr;
}
