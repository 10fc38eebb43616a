#include "FakeKill.h"

#include "Events.h"
#include "Utill.h"

namespace
{

bool g_result = true;
std::function<void()> g_thrower;

void reset()
{
	g_result = true;
	g_thrower = nullptr;
}

const bool g_isReset = events::resetForEachTest(reset);

} // namespace

namespace fakekill
{

void killGives(bool result)
{
	g_result = result;
}

void killThrows(std::function<void()> thrower)
{
	g_thrower = std::move(thrower);
}

} // namespace fakekill

bool Utill::processKill()
{
	events::add("kill");
	if (g_thrower)
	{
		g_thrower();
	}
	return g_result;
}

bool Utill::processKill(std::vector<Poco::ProcessHandle*>* /*pHandles*/)
{
	events::add("kill handles");
	return g_result;
}

bool Utill::advenceRunCheck(int /*unused*/)
{
	events::add("advence run check");
	return g_result;
}
