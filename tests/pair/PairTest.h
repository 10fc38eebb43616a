/// A test on a pair of its own. Without namespaces it is skipped; when it fails
/// it prints the timeline.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json_fwd.hpp>

#include "lab/core/Basics.h"
#include "lab/core/Lab.h"
#include "lab/core/Plan.h"

namespace velarix::lab
{

/// Skips the test where namespaces cannot be had.
#define SKIP_WITHOUT_NAMESPACES()                                                                                      \
	if (const std::optional<std::string> problem = namespaceProblem())                                                 \
	GTEST_SKIP() << *problem

class PairTest : public testing::Test
{
protected:
	/// Generous: a loaded machine needs several times what the pair takes.
	static constexpr Millis moveLimit{60000};

	/// Makes the lab and starts both agents.
	/// @param prepare  called with the lab before they start
	/// @return false when there is no lab: the test is skipped or has failed
	bool startPair(const LabOptions& options = {}, const std::function<void(Lab&)>& prepare = {});
	/// The same, and waits until node a holds the service.
	bool startServingPair(const LabOptions& options = {}, const std::function<void(Lab&)>& prepare = {});

	void TearDown() override;

	Lab& lab() { return *m_lab; }
	/// Removes it before the end of the test.
	void endLab() { m_lab.reset(); }
	/// Runs a script on a host, to its end or to what fails in it.
	CommandResult shell(HostId host, const std::string& script) { return lab().run(host, {"sh", "-ec", script}); }

	// Of velarixctl, where the nodes have it installed.

	static constexpr char velarixctl[] = "/usr/bin/velarixctl";

	/// Runs it on a node.
	CommandResult ctl(HostId node, std::vector<std::string> arguments, Millis limit = Millis(15000));

	/// @return what `status --json` prints there
	nlohmann::json status(HostId node);

	/// Waits until the node's status, as JSON, is as filtered.
	bool waitForStatus(HostId node, const std::string& what, const std::function<bool(const nlohmann::json&)>& filtered,
	                   Millis limit = moveLimit);

	/// Waits until a fail-over would work on both nodes.
	bool waitUntilReady();

	/// The service is on a and nothing is wrong on either node.
	bool startReadyPair(const LabOptions& options = {});
	/// Expects its status, and texts in what it prints.
	void expectSays(const CommandResult& result, int status, const std::vector<std::string>& texts = {});

	/// Waits until the node's log reported this action, after `since`.
	bool waitForAction(HostId node, const std::string& action, Millis since, Millis limit = moveLimit);

	/// How long the address was held as `owners` says, since then.
	Millis heldBy(const std::string& owners, Millis since);
	/// The longest time the client had no answer, since then.
	Millis outageSince(Millis since);

private:
	std::unique_ptr<Lab> m_lab;
};

/// A test begins with one of these; `call` is startPair or startServingPair.
#define PAIR_OR_RETURN(call)                                                                                           \
	if (!(call))                                                                                                       \
	{                                                                                                                  \
		return;                                                                                                        \
	}

std::vector<std::string> linesOf(const std::filesystem::path& path);

} // namespace velarix::lab
