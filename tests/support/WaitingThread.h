/// A thread that is expected to wait for a lock, perhaps for ever.
#pragma once

#include <atomic>
#include <memory>
#include <thread>

#include <sys/syscall.h>
#include <unistd.h>

#include "Sandbox.h"
#include "WaitFor.h"

/// Runs a call on a thread of its own. The thread is never joined, so that a test
/// may leave it waiting; it must then end with its process (see inOwnProcess).
class WaitingThread
{
public:
	explicit WaitingThread(std::function<void()> call)
	{
		// The state outlives this object: the thread may wake after it.
		std::thread(
		    [state = m_state, body = std::move(call)]
		    {
			    state->id = static_cast<pid_t>(::syscall(SYS_gettid));
			    body();
			    state->done = true;
		    })
		    .detach();
	}

	/// @return success once the kernel shows the thread inside a lock and the call
	///         has not returned
	testing::AssertionResult waits() const
	{
		const auto result = waitFor([this] { return isDone() || sleepsInALock(); }, kLimit, "wait for a lock");
		if (result && isDone())
		{
			return testing::AssertionFailure() << "the call returned";
		}
		return result;
	}

	/// @return success once the call has returned
	testing::AssertionResult returns() const
	{
		return waitFor([this] { return isDone(); }, kLimit, "return of the call");
	}

	bool isDone() const { return m_state->done; }

private:
	struct State
	{
		std::atomic<pid_t> id{0};
		std::atomic<bool> done{false};
	};

	bool sleepsInALock() const
	{
		const pid_t id = m_state->id;
		const std::string call = std::to_string(SYS_futex) + " ";
		return id != 0 &&
		       sandbox::readFile("/proc/self/task/" + std::to_string(id) + "/syscall").compare(0, call.size(), call) ==
		           0;
	}

	static constexpr std::chrono::seconds kLimit{20};

	std::shared_ptr<State> m_state = std::make_shared<State>();
};
