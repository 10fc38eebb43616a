#include "PairTest.h"

#include <algorithm>
#include <fstream>
#include <iostream>

#include <nlohmann/json.hpp>

namespace velarix::lab
{

namespace
{

/// GTEST_SKIP and FAIL return from a function without a value.
void makeLab(std::unique_ptr<Lab>& made, const LabOptions& options)
{
	SKIP_WITHOUT_NAMESPACES();
	try
	{
		requireLab(options.installRoot);
		made = std::make_unique<Lab>(options);
	}
	catch (const NamespacesUnavailable& error)
	{
		GTEST_SKIP() << error.what();
	}
	catch (const LabError& error)
	{
		FAIL() << error.what();
	}
}

} // namespace

bool PairTest::startPair(const LabOptions& options, const std::function<void(Lab&)>& prepare)
{
	makeLab(m_lab, options);
	if (m_lab)
	{
		prepare ? prepare(lab()) : void();
		m_lab->startAgents();
	}
	return m_lab != nullptr;
}

bool PairTest::startServingPair(const LabOptions& options, const std::function<void(Lab&)>& prepare)
{
	if (!startPair(options, prepare))
	{
		return false;
	}
	const bool served = lab().waitForService(HostId::a, moveLimit, Millis(1000));
	EXPECT_TRUE(served) << "the pair did not get going";
	return served;
}

void PairTest::TearDown()
{
	if (m_lab && HasFailure())
	{
		std::cout << "the timeline of the failed test:\n" << toText(m_lab->timeline());
	}
}

bool PairTest::waitForAction(HostId node, const std::string& action, Millis since, Millis limit)
{
	const auto is = [&](const Event& event)
	{
		return event.kind == EventKind::action && event.host == node && event.at >= since &&
		       event.text.find(action) != std::string::npos;
	};
	const auto reported = [&] { return std::ranges::any_of(lab().timeline().events(), is); };
	return waitFor(reported, limit, std::string("node ") + nameOf(node) + " to say \"" + action + "\"",
	               [&] { return lab().stateText(); });
}

Millis PairTest::heldBy(const std::string& owners, Millis since)
{
	const Millis now = lab().clock().now();
	return timeWith(lab().timeline().intervals(addressTrack, now), owners, since, now);
}

Millis PairTest::outageSince(Millis since)
{
	const Millis now = lab().clock().now();
	return longestWith(lab().timeline().intervals(serviceTrack, now), "none", since, now);
}

CommandResult PairTest::ctl(HostId node, std::vector<std::string> arguments, Millis limit)
{
	arguments.insert(arguments.begin(), velarixctl);
	return lab().run(node, arguments, limit);
}

nlohmann::json PairTest::status(HostId node)
{
	return nlohmann::json::parse(ctl(node, {"status", "--json"}).output);
}

bool PairTest::waitForStatus(HostId node, const std::string& what,
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

bool PairTest::waitUntilReady()
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

bool PairTest::startReadyPair(const LabOptions& options)
{
	return startServingPair(options) && waitUntilReady();
}

void PairTest::expectSays(const CommandResult& result, int status, const std::vector<std::string>& texts)
{
	EXPECT_EQ(result.status, status) << result.output;
	for (const std::string& text : texts)
	{
		EXPECT_NE(result.output.find(text), std::string::npos) << "no \"" << text << "\" in: " << result.output;
	}
}

std::vector<std::string> linesOf(const std::filesystem::path& path)
{
	std::vector<std::string> lines;
	std::ifstream stream(path);
	for (std::string line; std::getline(stream, line);)
	{
		lines.push_back(line);
	}
	return lines;
}

} // namespace velarix::lab
