#include "SenderTest.h"

#include <Poco/Thread.h>

SenderTest::SenderTest()
{
	settings.set("AGENT.PARTNER_IP", "127.0.0.1");
}

void SenderTest::SetUp()
{
	DaemonTest::SetUp();
	partner = std::make_unique<peer::Listener>(kPort);
	makeSender();
}

void SenderTest::makeSender()
{
	sender = std::make_unique<CHeartSender>(&handles, &running, &mode, location);
}

void SenderTest::endAtWait(int n)
{
	m_waits = 0;
	events::onSleep(
	    [this, n](long)
	    {
		    ++m_waits;
		    if (const auto it = m_atWait.find(m_waits); it != m_atWait.end())
		    {
			    it->second();
		    }
		    if (m_waits >= n)
		    {
			    throw events::EndOfScript{};
		    }
	    });
}

events::List SenderTest::untilWait(int n)
{
	endAtWait(n);
	EXPECT_THROW(sender->run(), events::EndOfScript);
	return events::all();
}

events::List SenderTest::untilWaitOnAThread(int n)
{
	endAtWait(n);
	Poco::Thread thread;
	thread.start(*sender);
	EXPECT_TRUE(waitFor([&] { return !thread.isRunning(); }, std::chrono::seconds(20), "end of the thread"));
	thread.join();
	return events::all();
}

void SenderTest::atWait(int n, std::function<void()> action)
{
	m_atWait[n] = std::move(action);
}
