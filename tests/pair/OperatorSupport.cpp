#include "OperatorTest.h"

namespace velarix::lab
{

CommandResult OperatorTest::ctl(HostId node, std::vector<std::string> arguments, Millis limit)
{
	arguments.insert(arguments.begin(), program);
	return lab().run(node, arguments, limit);
}

nlohmann::json OperatorTest::status(HostId node)
{
	return nlohmann::json::parse(ctl(node, {"status", "--json"}).output);
}

bool OperatorTest::waitForStatus(HostId node, const std::string& what,
                                 const std::function<bool(const nlohmann::json&)>& filtered, Millis limit)
{
	nlohmann::json last;
	return waitFor(
	    [&]
	    {
		    last = status(node);
		    return filtered(last);
	    },
	    limit, std::string("the status of node ") + nameOf(node) + " to tell " + what, [&] { return last.dump(); });
}

bool OperatorTest::waitUntilReady()
{
	// A node that has just raised the address has heard no partner for as long as that took,
	// and the partner has not been reported yet that the programs run.
	const auto ready = [](const nlohmann::json& status)
	{
		const nlohmann::json& partner = status["partner"];
		const nlohmann::json& age = partner["heartbeat_received_age_seconds"];
		const bool reported = partner["role"]["value"] != "master" || partner["programs_run"]["value"] == true;
		return status["fail_over"]["works"] == true && status["problems"].empty() && reported && age.is_number() &&
		       age < 3;
	};
	return waitForStatus(HostId::a, "that all is well", ready) && waitForStatus(HostId::b, "that all is well", ready);
}

bool OperatorTest::startReadyPair(const LabOptions& options)
{
	return startServingPair(options) && waitUntilReady();
}

} // namespace velarix::lab
