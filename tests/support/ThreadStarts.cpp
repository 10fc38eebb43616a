#include "ThreadStarts.h"

#include <map>

#include "CHeartReciver.h"
#include "CHeartSender.h"
#include "Events.h"
#include "ProcessChecker.h"

namespace
{

std::map<std::string, std::function<void()>> g_throwers;

std::string nameOf(Poco::Runnable& worker)
{
	if (dynamic_cast<ProcessChecker*>(&worker) != nullptr)
	{
		return "ProcessChecker";
	}
	if (dynamic_cast<CHeartReciver*>(&worker) != nullptr)
	{
		return "CHeartReciver";
	}
	return dynamic_cast<CHeartSender*>(&worker) != nullptr ? "CHeartSender" : "unknown";
}

void reset()
{
	g_throwers.clear();
}

const bool g_isReset = events::resetForEachTest(reset);

} // namespace

namespace threadstarts
{

void startThrows(const std::string& worker, std::function<void()> thrower)
{
	g_throwers[worker] = std::move(thrower);
}

} // namespace threadstarts

// Poco::Thread::start(Poco::Runnable&); a member function takes its object first.
extern "C" void __wrap__ZN4Poco6Thread5startERNS_8RunnableE(Poco::Thread* pThread, Poco::Runnable& worker);
extern "C" void __wrap__ZN4Poco6Thread5startERNS_8RunnableE(Poco::Thread* /*pThread*/, Poco::Runnable& worker)
{
	const std::string name = nameOf(worker);
	events::add("start " + name);
	if (const auto it = g_throwers.find(name); it != g_throwers.end())
	{
		it->second();
	}
}
