#include "FakeDatabaseCheck.h"

#include "Database.h"
#include "Events.h"

namespace
{

int g_failures = 0;
MODE* g_lastMode = nullptr;

} // namespace

namespace fakedatabase
{

void failTimes(int times)
{
	g_failures = times;
}

MODE* lastMode()
{
	return g_lastMode;
}

} // namespace fakedatabase

bool DBFileCheck(MODE* pMode)
{
	events::add("database check");
	g_lastMode = pMode;
	return g_failures-- <= 0;
}
