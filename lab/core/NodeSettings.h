/// The settings files of one node.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "lab/core/Basics.h"

namespace velarix::lab
{

/// What raises the address and runs the service: the keeper, or shell commands.
enum class Profile
{
	keeper,
	plain
};

/// @return "keeper" or "plain"
const char* nameOf(Profile profile);

/// What both nodes are set to; times in whole seconds.
struct PairSettings
{
	int interval = 1;      ///< pause after each heartbeat
	int receivingTime = 2; ///< a silence; keep it at least twice the interval
	int waitingTime = 0;   ///< between the address and the programs
	Profile profile = Profile::plain;
	bool wireguard = false; ///< the heartbeats go through a tunnel
};

/// "keeper settings, interval 1 s, receiving time 2 s, waiting time 0 s"
std::string toText(const PairSettings& times);

class NodeSettings
{
public:
	/// The settings of node a or b of a lab: the other node as partner, a
	/// configured as master, and the profile's commands and programs
	/// (lab/README.md says why they look as they do).
	static NodeSettings standard(HostId node, const PairSettings& pair = {});

	/// Sets a key, for example set("AGENT.MODE", "2"); adds it when missing.
	NodeSettings& set(const std::string& key, const std::string& value);
	NodeSettings& set(const std::string& key, int value) { return set(key, std::to_string(value)); }
	/// Leaves the key out of the file.
	NodeSettings& remove(const std::string& key);
	/// @return the value; empty when the key is not there
	std::string get(const std::string& key) const;

	/// The heartbeats go through a WireGuard tunnel.
	bool usesTunnel() const;

	/// The text of the settings file.
	std::string ini() const;
	/// The text of the keeper's settings file; empty in the plain profile.
	const std::string& keeperIni() const { return m_keeperIni; }

private:
	using Entry = std::pair<std::string, std::string>;

	std::string m_keeperIni;
	std::vector<Entry> m_values;
};

} // namespace velarix::lab
