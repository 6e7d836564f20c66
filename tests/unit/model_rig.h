/* SPDX-License-Identifier: GPL-2.0 */
// What the tests of the kernel model share: waiting for a condition, holding a
// thread at a place, and the model's stops, which end any other program.
#ifndef TESTS_UNIT_MODEL_RIG_H
#define TESTS_UNIT_MODEL_RIG_H

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <span>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "model.h"

inline bool eventually(const std::function<bool()> &condition)
{
	const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);

	for (int turn = 0; !condition(); turn++) {
		if (std::chrono::steady_clock::now() > deadline)
			return false;
		if (turn < 1000) // what is waited for often comes within nanoseconds
			std::this_thread::yield();
		else
			std::this_thread::sleep_for(std::chrono::microseconds(200));
	}
	return true;
}

// Holds back whoever calls pass() until open() is called.
class gate {
public:
	void pass()
	{
		reached_ = true;
		while (!open_)
			std::this_thread::yield();
	}
	bool reached()
	{
		return eventually([&] { return reached_.load(); });
	}
	void open() { open_ = true; }

private:
	std::atomic<bool> reached_{false};
	std::atomic<bool> open_{false};
};

// Holds back the first thread that comes to a place of host_at.
class held_place {
public:
	explicit held_place(const char *place) : place_(place) { host_at(place, pass, this); }
	~held_place() { open(); }
	held_place(const held_place &) = delete;
	held_place &operator=(const held_place &) = delete;

	bool reached() { return gate_.reached(); }
	void open()
	{
		host_at(place_, nullptr, nullptr);
		gate_.open();
	}

private:
	static void pass(void *arg)
	{
		auto &self = *static_cast<held_place *>(arg);

		if (!self.taken_.exchange(true))
			self.gate_.pass();
	}

	const char *place_;
	std::atomic<bool> taken_{false};
	gate gate_;
};

// What happened, in order, from whatever thread.
class journal {
public:
	void add(const std::string &entry)
	{
		const std::lock_guard guard(lock_);
		entries_.push_back(entry);
	}
	std::vector<std::string> take()
	{
		const std::lock_guard guard(lock_);
		return std::exchange(entries_, {});
	}

private:
	std::mutex lock_;
	std::vector<std::string> entries_;
};

inline journal stops;

inline void note_stop(const char *text)
{
	stops.add(text);
}

struct misuse {
	const char *text; // of the stop
	void (*commit)();
};

inline void expect_each_stops(std::span<const misuse> cases)
{
	host_set_bug_handler(note_stop);
	for (const misuse &row : cases) {
		SCOPED_TRACE(row.text);
		row.commit();
		EXPECT_THAT(stops.take(), testing::ElementsAre(testing::HasSubstr(row.text)));
	}
}

#endif
