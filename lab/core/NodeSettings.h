/// The settings file of one node, key by key.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "lab/core/Basics.h"
#include "lab/core/Json.h"

namespace velarix::lab
{

/// The times a pair runs with, in whole seconds.
struct PairTimes
{
	int interval = 1;      ///< pause after each heartbeat
	int receivingTime = 2; ///< a silence; keep it at least twice the interval
	int waitingTime = 0;   ///< between the address and the programs
};

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(PairTimes, interval, receivingTime, waitingTime)

/// "interval 1 s, receiving time 2 s, waiting time 0 s"
std::string toText(const PairTimes& times);

class NodeSettings
{
public:
	/// The settings of node a or b of a lab: the other node as partner, a
	/// configured as master, one managed program, and virtual IP commands that
	/// suit the agent (lab/README.md says why they look as they do).
	static NodeSettings standard(HostId node, const PairTimes& times = {});

	/// Sets a key, for example set("AGENT.MODE", "2"); adds it when missing.
	NodeSettings& set(const std::string& key, const std::string& value);
	NodeSettings& set(const std::string& key, int value) { return set(key, std::to_string(value)); }
	/// Leaves the key out of the file.
	NodeSettings& remove(const std::string& key);
	/// @return the value; empty when the key is not there
	std::string get(const std::string& key) const;

	/// The text of the settings file.
	std::string ini() const;

private:
	std::vector<std::pair<std::string, std::string>> m_values;
};

} // namespace velarix::lab
