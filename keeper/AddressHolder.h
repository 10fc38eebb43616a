/// ha-address: holds the virtual address while it lives (AddressMachine.h), and keeps the
/// marker (Netlink.h).
#pragma once

#include <string>
#include <vector>

#include "keeper/AddressMachine.h"
#include "keeper/Arp.h"
#include "keeper/Journal.h"
#include "keeper/Loop.h"
#include "keeper/Netlink.h"
#include "keeper/Settings.h"

namespace velarix::keeper
{

class AddressHolder
{
public:
	/// @param services the programs that run only where the address is
	AddressHolder(AddressSettings settings, std::vector<std::string> services);
	/// Works until SIGTERM. @return the exit status
	int run();

private:
	/// Something that is done at most every so often, and later rather than not at all.
	struct Due
	{
		Millis gap;
		Millis at = kNever;
		Millis last = -1'000'000;

		/// As soon as it may be done.
		void want(Millis moment) { at = std::min(at, std::max(moment, last + gap)); }
		/// @return whether it is to be done now, and takes that for done
		bool take(Millis moment);
	};

	void turn();
	void lookAround();
	void openArp();
	void readArpSocket();
	void considerProbe();
	bool nothingIsLeft();
	void feed(AddressEvent event, const Mac& from = {});
	void perform(const AddressActions& actions);
	void report(AddressEvent cause, const AddressMachine& before);
	/// @return whether the services may run: not with an address that nobody else has heard of
	bool mayServe();
	void publish();

	AddressSettings m_settings;
	std::vector<std::string> m_services;
	Journal m_journal;
	Loop m_loop;
	NetlinkBell m_bell;
	ArpSocket m_arp;
	Sight m_sight;
	AddressMachine m_machine;
	Millis m_turn = now(); ///< when the loop was here last
	Due m_look;
	Due m_publish;
	Millis m_arpAgainAt = kNever; ///< reading of a flood goes on then
	Millis m_unheardAt = kNever;  ///< without carrier it is raised all the same then
	bool m_unheard = false;       ///< raised so, and nobody has been asked since
	Millis m_askedAt = kNever;    ///< when another host probed last
	Millis m_uselessAt = kNever;  ///< since when others have asked for it in vain while a service has ended here
	pid_t m_ending = 0;           ///< ends what is left of a service
	Millis m_endAgainAt = 0;      ///< no sooner
	int m_conflicts = 0;
	long long m_lastConflict = 0; ///< CLOCK_REALTIME in seconds
	int m_removals = 0;
};

} // namespace velarix::keeper
