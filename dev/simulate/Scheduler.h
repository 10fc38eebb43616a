/// Virtual time, and what runs in it: tasks, each with a stack of its own, one at a time. A
/// task runs until it pauses; nothing else can happen meanwhile. Times are microseconds since
/// the schedule's start.
#pragma once

#include <array>
#include <csetjmp>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

namespace velarix::simulate
{

using Micros = std::int64_t;
inline constexpr Micros kMilli = 1'000;
inline constexpr Micros kSecond = 1'000'000;
inline constexpr Micros kNoTime = std::numeric_limits<Micros>::max();

/// The same numbers from the same seed, on every machine.
class Random
{
public:
	explicit Random(std::uint64_t seed) : m_state(seed) {}
	std::uint64_t next();
	/// @return 0 to `limit` - 1
	Micros below(Micros limit)
	{
		return limit > 0 ? static_cast<Micros>(next() % static_cast<std::uint64_t>(limit)) : 0;
	}
	Micros between(Micros low, Micros high) { return low + below(high - low + 1); }
	bool chance(int percent) { return below(100) < percent; }

private:
	std::uint64_t m_state;
};

/// Thrown out of a task's pause when its process is killed.
struct Killed
{
};

struct Process;

struct Task
{
	Process* process = nullptr;
	std::function<void()> body;
	char* stack = nullptr;
	std::jmp_buf place{};
	std::array<void*, 2> exceptions{}; ///< what the C++ runtime keeps of exceptions in flight
	std::uint32_t turn = 0;            ///< wakes of an earlier pause do not count
	Micros wakesAt = kNoTime;          ///< the earliest of this turn: later ones are not needed
	bool started = false;
	bool dying = false;
	bool finished = false;
	bool missed = false; ///< was to be woken while its process stood still
};

class Scheduler
{
public:
	/// @param mayRun  whether a task's process does not stand still
	/// @param enter   called before a task runs, leave after it
	struct Hooks
	{
		std::function<bool(const Task&)> mayRun;
		std::function<void(Task&)> enter;
		std::function<void(Task&)> leave;
		std::function<void()> afterEvent; ///< the world may have changed
	};

	explicit Scheduler(Hooks hooks) : m_hooks(std::move(hooks)) {}
	~Scheduler();
	Scheduler(const Scheduler&) = delete;
	Scheduler& operator=(const Scheduler&) = delete;

	Micros now() const { return m_now; }
	/// The task that runs; null between tasks.
	static Task* current() { return s_current; }

	void at(Micros moment, std::function<void()> call);
	Task& spawn(Process& process, std::function<void()> body);
	/// Lets `task` go on at `moment`, unless it has gone on for another reason before.
	void wakeAt(Task& task, Micros moment);
	/// Within a task: lets others run until somebody wakes it, at the latest at `moment`.
	/// @throws Killed
	void pause(Micros moment = kNoTime);
	/// Ends the task at its pause, as soon as it has the turn.
	void kill(Task& task);
	/// What was missed while a process stood still is due now.
	void catchUp(Task& task);

	/// Runs until `moment`, or until stop().
	void run(Micros moment);
	void stop() { m_stopped = true; }

private:
	/// Trivial to move: the heap moves a lot.
	struct Event
	{
		std::int64_t key = 0;    ///< the moment, and among those of one moment the order
		Task* task = nullptr;    ///< null: a call
		std::uint32_t index = 0; ///< the task's turn, or the call's place
	};

	struct IsLater
	{
		bool operator()(const Event& one, const Event& other) const { return one.key > other.key; }
	};

	static constexpr int kOrderBits = 24; ///< a schedule has fewer events, and ends within days

	void push(Micros moment, Event event);
	/// @return whether anything has run
	bool take(const Event& event);
	void call(std::uint32_t index);
	void resume(Task& task);
	static void begin();

	static inline Task* s_current = nullptr;

	Hooks m_hooks;
	Micros m_now = 0;
	std::int64_t m_order = 0;
	bool m_stopped = false;
	std::vector<Event> m_events; ///< a heap
	std::vector<std::function<void()>> m_calls;
	std::vector<std::uint32_t> m_free; ///< places in m_calls
	std::vector<std::unique_ptr<Task>> m_tasks;
};

} // namespace velarix::simulate
