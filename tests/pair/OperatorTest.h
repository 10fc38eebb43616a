/// A test on a pair whose nodes have velarixctl installed.
#pragma once

#include <nlohmann/json.hpp>

#include "PairTest.h"

namespace velarix::lab
{

class OperatorTest : public PairTest
{
protected:
	/// Where the nodes have it.
	static constexpr char program[] = "/usr/bin/velarixctl";

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
};

} // namespace velarix::lab
