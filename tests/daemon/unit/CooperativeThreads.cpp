#include "CooperativeThreads.h"

#include "Events.h"

namespace
{

thread_local CooperativeThread* g_pCurrent = nullptr;

} // namespace

CooperativeThread::CooperativeThread(std::function<void()> body)
    : m_body(std::move(body)), m_thread([this] { runBody(); })
{
}

CooperativeThread::~CooperativeThread()
{
	{
		std::unique_lock lock(m_mutex);
		m_stopping = true;
		giveTurn(lock, Owner::body);
	}
	m_thread.join();
}

void CooperativeThread::takeTurn()
{
	std::unique_lock lock(m_mutex);
	giveTurn(lock, Owner::body);
	awaitTurn(lock, Owner::caller);
}

void CooperativeThread::pause()
{
	CooperativeThread& self = *current();
	std::unique_lock lock(self.m_mutex);
	self.giveTurn(lock, Owner::caller);
	self.awaitTurn(lock, Owner::body);
	if (self.m_stopping)
	{
		throw events::EndOfScript{};
	}
}

CooperativeThread* CooperativeThread::current()
{
	return g_pCurrent;
}

void CooperativeThread::runBody()
{
	g_pCurrent = this;
	std::unique_lock lock(m_mutex);
	awaitTurn(lock, Owner::body);
	if (!m_stopping)
	{
		lock.unlock();
		try
		{
			m_body();
		}
		catch (const events::EndOfScript&)
		{
			// Ended on purpose.
		}
		lock.lock();
	}
	giveTurn(lock, Owner::caller);
}

void CooperativeThread::giveTurn(std::unique_lock<std::mutex>& /*lock*/, Owner to)
{
	m_owner = to;
	m_changed.notify_all();
}

void CooperativeThread::awaitTurn(std::unique_lock<std::mutex>& lock, Owner whose)
{
	m_changed.wait(lock, [&] { return m_owner == whose; });
}
