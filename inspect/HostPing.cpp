#include "inspect/Host.h"

#include <Poco/Exception.h>
#include <Poco/Net/ICMPClient.h>

namespace velarix::inspect::host
{

std::optional<bool> answersPing(const std::string& address, int count)
{
	if (whyNoPing())
	{
		return std::nullopt;
	}
	try
	{
		return Poco::Net::ICMPClient::pingIPv4(address, count) > 0;
	}
	catch (const Poco::Exception&)
	{
		return false;
	}
}

} // namespace velarix::inspect::host
