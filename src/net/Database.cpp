#include "Database.h"

#include <iostream>

#include <Poco/Thread.h>

#include "VelarixLog.h"

namespace
{

constexpr char kSource[] = "Utill";
constexpr int kTries = 100;

} // namespace

bool isDBOn(MODE* pMode)
{
	for (int tries = 0; tries < kTries;)
	{
		if (DBFileCheck(pMode))
		{
			velarixLog->debug(kSource, 728, "%s", "DB is working");
			return true;
		}
		++tries;
		Poco::Thread::sleep(1000);
		std::cout << "waiting database...: " << tries << std::endl;
	}
	velarixLog->debug(kSource, 739, "%s", "DB is not working");
	return false;
}
