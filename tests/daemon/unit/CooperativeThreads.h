/// Bodies without end that run one at a time, each on a thread of its own: a body
/// runs while it has the turn and gives it back where it pauses. What happens is
/// therefore the same at every run.
#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

class CooperativeThread
{
public:
	explicit CooperativeThread(std::function<void()> body);
	/// Ends the body with events::EndOfScript out of its pause.
	~CooperativeThread();
	CooperativeThread(const CooperativeThread&) = delete;
	CooperativeThread& operator=(const CooperativeThread&) = delete;

	/// Lets the body run to its next pause. A turn may be taken within another's.
	void takeTurn();

	/// Gives the turn back. To be called within a body.
	static void pause();
	/// @return whose body runs on this thread; null on other threads
	static CooperativeThread* current();

private:
	enum class Owner
	{
		caller,
		body
	};

	void runBody();
	void giveTurn(std::unique_lock<std::mutex>& lock, Owner to);
	void awaitTurn(std::unique_lock<std::mutex>& lock, Owner whose);

	std::function<void()> m_body;
	std::mutex m_mutex;
	std::condition_variable m_changed;
	Owner m_owner = Owner::caller;
	bool m_stopping = false;
	std::thread m_thread;
};
