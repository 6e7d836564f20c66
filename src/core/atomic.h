// SPDX-License-Identifier: GPL-2.0
//
// Marked accesses to words that interrupt paths share with process context.
#ifndef INTR_CORE_ATOMIC_H
#define INTR_CORE_ATOMIC_H

template <typename T> [[nodiscard]] inline T read_once(const T &word)
{
	return __atomic_load_n(&word, __ATOMIC_RELAXED);
}

template <typename T> inline void write_once(T &word, T value)
{
	__atomic_store_n(&word, value, __ATOMIC_RELAXED);
}

template <typename T> [[nodiscard]] inline T load_acquire(const T &word)
{
	return __atomic_load_n(&word, __ATOMIC_ACQUIRE);
}

template <typename T> inline void store_release(T &word, T value)
{
	__atomic_store_n(&word, value, __ATOMIC_RELEASE);
}

// For two sides that each write one word and then read the other's: at least
// one of them sees the other's write.
template <typename T> [[nodiscard]] inline T load_ordered(const T &word)
{
	return __atomic_load_n(&word, __ATOMIC_SEQ_CST);
}

template <typename T> inline void store_ordered(T &word, T value)
{
	__atomic_store_n(&word, value, __ATOMIC_SEQ_CST);
}

template <typename T> inline T exchange(T &word, T value)
{
	return __atomic_exchange_n(&word, value, __ATOMIC_SEQ_CST);
}

[[nodiscard]] inline bool test_bit(unsigned bit, const unsigned long &word)
{
	return (read_once(word) >> bit & 1) != 0;
}

// Both return whether the bit was set before.
inline bool test_and_set_bit(unsigned bit, unsigned long &word)
{
	return __atomic_fetch_or(&word, 1ul << bit, __ATOMIC_SEQ_CST) & (1ul << bit);
}

inline bool test_and_clear_bit(unsigned bit, unsigned long &word)
{
	return __atomic_fetch_and(&word, ~(1ul << bit), __ATOMIC_SEQ_CST) & (1ul << bit);
}

#endif
