/// ha-address: holds the virtual address while it lives (AddressMachine.h), and keeps the
/// marker (Netlink.h).
#pragma once

#include <map>
#include <string>

#include "AddressMachine.h"
#include "Arp.h"
#include "Journal.h"
#include "Loop.h"
#include "Netlink.h"
#include "Settings.h"

namespace velarix::keeper
{

/// @return "02:00:00:00:00:01"
std::string macText(const Mac& mac);

/// Sets the marker. @return 0 or errno
int setMarker(Netlink& netlink, std::uint32_t address);
int removeMarker(Netlink& netlink, std::uint32_t address);
bool hasMarker(Netlink& netlink, std::uint32_t address);

/// Removes the address from its interface, whatever its prefix, and looks whether it has
/// gone. @return 0, or errno when it is still there
int removeAddress(Netlink& netlink, const AddressSettings& settings);

class AddressHolder
{
public:
	explicit AddressHolder(AddressSettings settings);
	/// Works until SIGTERM. @return the exit status
	int run();

private:
	void readLinks();
	bool isOwn(const Mac& mac) const;
	void onLink(const Link& link);
	void onRemoved(const Address& address);
	void readNetlink();
	void readArpSocket();
	void afterLoss();
	void feed(AddressEvent event, const Mac& from = {});
	void perform(const AddressActions& actions);
	void report(AddressEvent event, const AddressMachine& before);
	void publish(bool atOnce);
	void onTime(Millis moment);
	Millis deadline() const;
	Address address() const;

	AddressSettings m_settings;
	Journal m_journal;
	Loop m_loop;
	Netlink m_netlink;
	NetlinkMonitor m_monitor;
	ArpSocket m_arp;
	Link m_link;
	std::map<int, Mac> m_ownMacs; ///< of all interfaces of this machine, by index
	AddressMachine m_machine;
	Millis m_arpAgainAt = kNever; ///< reading of a flood goes on then
	Millis m_markerAt = kNever;   ///< a removed marker is set then
	Millis m_publishAt = kNever;  ///< the state file is due then
	Millis m_publishedAt = 0;
	int m_conflicts = 0;
	long long m_lastConflict = 0; ///< CLOCK_REALTIME in seconds
	int m_removals = 0;
};

} // namespace velarix::keeper
