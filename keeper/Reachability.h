/// ha-reach: sees whether this node reaches its targets, and holds the reachability address
/// (GATEWAY_IP) on lo as long as it does (ReachMachine.h). The agent pings that address to judge
/// its own network. Killed, it leaves the address to the next ha-reach; when there is none, or it is
/// frozen, the kernel removes the address.
#pragma once

#include <array>
#include <filesystem>
#include <string>
#include <vector>

#include "inspect/EchoSocket.h"
#include "keeper/Journal.h"
#include "keeper/Loop.h"
#include "keeper/Netlink.h"
#include "keeper/PartnerLink.h"
#include "keeper/ReachMachine.h"
#include "keeper/Runtime.h"
#include "keeper/Settings.h"

namespace velarix::keeper
{

class Reachability
{
public:
	explicit Reachability(const ReachSettings& settings);
	/// Works until SIGTERM. @return the exit status; EX_TEMPFAIL to be started with changed settings
	int run();

private:
	/// A target's pings.
	struct Pings
	{
		inspect::EchoSocket socket;
		bool answered = false; ///< the last one
		long long since = 0;   ///< of what is known of the target; CLOCK_REALTIME in seconds
	};

	void turn();
	void end(pid_t guard);
	void round();
	void ping(std::size_t index);
	void readPing(std::size_t index);
	void openLink();
	bool settingsChanged();
	void readPartner();
	void judge();
	PartnerWord word() const;
	void feed(ReachEvent event);
	void raise();
	void handOver();
	void report(ReachState before);
	void publish();

	using FileTimes = std::array<std::filesystem::file_time_type, 2>;
	FileTimes m_files;     ///< before the key is read
	FileTimes m_refused{}; ///< could not be used, as reported
	ReachSettings m_settings;
	AddressSettings m_address;
	Journal m_journal;
	Loop m_loop;
	NetlinkBell m_bell;
	PartnerLink m_link;
	ReachMachine m_machine;
	long long m_since = 0; ///< of its state; CLOCK_REALTIME in seconds
	std::vector<Target> m_targets;
	std::vector<Pings> m_pings;
	bool m_set = false;                ///< the last raise succeeded
	bool m_changed = false;            ///< there are new settings
	int m_bindError = 0;               ///< as reported
	std::string m_partner = "unknown"; ///< fails, reaches, ready, silent
	bool m_asked = false;              ///< and not answered yet
	Millis m_refreshAt = 0;            ///< before the kernel removes the address
	Millis m_roundAt = 0;
	Millis m_readAgainAt = kNever; ///< after a flood of datagrams
	Fields m_published;
};

} // namespace velarix::keeper
