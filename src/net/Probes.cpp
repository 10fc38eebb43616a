#include "Probes.h"

#include <string>

#include <Poco/Exception.h>

#include "Configuraion.h"
#include "Outside.h"
#include "VelarixLog.h"
#include "velarix/paths.h"
#include "velarix/velarix.h"

namespace
{

constexpr char kSource[] = "Utill";
constexpr int kPings = 10;

/// @param logError is called with an exception of the ping, which counts as no answer: each
///        probe's line has a number and a text of its own
template <typename LogError> bool answers(const std::string& address, LogError logError)
{
	try
	{
		return outside::ping(address, kPings) >= 1;
	}
	catch (const Poco::Exception& exc)
	{
		logError(exc);
		return false;
	}
}

} // namespace

bool partnerComunicationIPcheck()
{
	const std::string address = Configuraion::getInstance(velarix::kSettingsPath)->getString("AGENT.PARTNER_IP");
	velarixLog->debug(kSource, 756, "partnerComunicationIPcheck : partnerIP: %s", address.c_str());
	const auto logError = [](const Poco::Exception& exc)
	{
		velarixLog->error(kSource, 766, "partner Comunication IP Check Failed: %s[CODE:%d]", exc.displayText().c_str(),
		                  exc.code());
	};
	if (answers(address, logError))
	{
		velarixLog->debug(kSource, 760, "%s", "partnerComunicationIPcheck : true");
		return true;
	}
	velarixLog->debug(kSource, 768, "%s", "partnerComunicationIPcheck : false");
	return false;
}

bool myComunicationIPcheck()
{
	velarixLog->debug(kSource, 774, "%s", "myComunicationIPcheck : START");
	const std::string address = Configuraion::getInstance(velarix::kSettingsPath)->getString("AGENT.GATEWAY_IP");
	const auto logError = [](const Poco::Exception& exc)
	{
		velarixLog->error(kSource, 789, "My Comunication IP Check Failed: %s[CODE:%d]", exc.displayText().c_str(),
		                  exc.code());
	};
	if (answers(address, logError))
	{
		velarixLog->debug(kSource, 783, "%s", "myComunicationIPcheck : TRUE");
		return true;
	}
	velarixLog->debug(kSource, 791, "%s", "myComunicationIPcheck : FALSE");
	return false;
}

bool serviceIPcheck()
{
	velarixLog->debug(kSource, 797, "%s", "serviceIPcheck : START");
	const std::string address = Configuraion::getInstance(velarix::kSettingsPath)->getString("AGENT.VIRTUAL_IP");
	const auto logError = [](const Poco::Exception& exc)
	{ velarixLog->error(kSource, 814, "service IP Check Failed: %s[CODE:%d]", exc.displayText().c_str(), exc.code()); };
	if (answers(address, logError))
	{
		velarixLog->debug(kSource, 807, "serviceIP[%s],%s", address.c_str(), "serviceIPcheck : true");
		return true;
	}
	velarixLog->debug(kSource, 817, "%s", "serviceIPcheck : false");
	return false;
}
