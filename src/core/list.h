// SPDX-License-Identifier: GPL-2.0
//
// Intrusive circular doubly linked list with a head. Items are appended at the
// tail and walked from the head, so list order is creation order.
//
// One writer at a time (the owner's lock says which); readers may walk without
// a lock. Append publishes an item only after its links are complete (release,
// paired with the acquire in the walk). Unlinking keeps the item's own forward
// link, so that a reader standing on it still finds the way to the end; the
// item may be freed only after such readers are gone.
#ifndef INTR_CORE_LIST_H
#define INTR_CORE_LIST_H

#include "intr/types.h"

struct list_node {
	list_node *next;
	list_node *prev;
};

// T is a record with a list_node member named `node`.
template <typename T> struct list {
	list_node head;

	class iterator {
	public:
		explicit iterator(list_node *at) : at_(at) {}
		T &operator*() const { return *record(at_); }
		iterator &operator++()
		{
			at_ = successor(at_);
			return *this;
		}
		bool operator!=(const iterator &other) const { return at_ != other.at_; }

	private:
		list_node *at_;
	};

	void init()
	{
		head.next = &head;
		head.prev = &head;
	}

	[[nodiscard]] bool empty() const
	{
		return __atomic_load_n(&head.next, __ATOMIC_ACQUIRE) == &head;
	}

	void append(T &item)
	{
		item.node.next = &head;
		item.node.prev = head.prev;
		__atomic_store_n(&head.prev->next, &item.node, __ATOMIC_RELEASE);
		head.prev = &item.node;
	}

	static void unlink(T &item)
	{
		__atomic_store_n(&item.node.prev->next, item.node.next, __ATOMIC_RELEASE);
		item.node.next->prev = item.node.prev;
	}

	// `by` takes the place of an item that is still in the list.
	static void replace(T &item, T &by)
	{
		by.node = item.node;
		__atomic_store_n(&by.node.prev->next, &by.node, __ATOMIC_RELEASE);
		by.node.next->prev = &by.node;
	}

	// The first item, or null. For owners that empty the list.
	[[nodiscard]] T *first() { return empty() ? nullptr : record(head.next); }

	[[nodiscard]] iterator begin() { return iterator(successor(&head)); }
	[[nodiscard]] iterator end() { return iterator(&head); }

private:
	static list_node *successor(list_node *at)
	{
		return __atomic_load_n(&at->next, __ATOMIC_ACQUIRE);
	}
	static T *record(list_node *at)
	{
		return reinterpret_cast<T *>(reinterpret_cast<char *>(at) - offsetof(T, node));
	}
};

#endif
