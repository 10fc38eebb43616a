/// The kernel's interfaces and addresses: what is there now, changes of it, and word of changes.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "keeper/AddressMachine.h"
#include "keeper/Settings.h"

struct mnl_socket;

namespace velarix::keeper
{

/// What this machine's network shows of the address.
struct Sight
{
	int index = 0; ///< of the service interface; 0: there is none
	Mac mac{};
	bool up = false;      ///< up and with carrier
	bool present = false; ///< the address is on the interface
	/// The address stands on lo as ::192.0.2.100: the marker. The agent takes the virtual
	/// address for raised, without its countdown, when its text is anywhere in what ifconfig
	/// prints. This is printed, and answers no IPv4 ping. Without IPv6 on lo an interface
	/// without address and carrier that is called 192.0.2.100 serves as well.
	bool marker = false;
	std::vector<Mac> own; ///< of all interfaces of this machine
};

/// Looks at everything anew: what is heard through NetlinkBell may have been lost.
/// @return nothing when the kernel does not tell
std::optional<Sight> look(const AddressSettings& settings);

/// Each @return 0 or errno
/// @param seconds after which the kernel removes it, unless it is added again; 0: never
int addAddress(const AddressSettings& settings, std::uint32_t seconds = 0);
int setMarker(const AddressSettings& settings);
/// Removes the address from its interface, whatever its prefix, until the kernel has none.
int removeAddress(const AddressSettings& settings);
int removeMarker(const AddressSettings& settings);

/// Rings when an interface or an address of this machine has changed.
class NetlinkBell
{
public:
	/// @throws std::runtime_error
	NetlinkBell();

	int descriptor() const;
	/// Until the next change. What it was is not reported: look().
	void quiet() const;

private:
	std::unique_ptr<mnl_socket, int (*)(mnl_socket*)> m_socket;
};

/// @return "02:00:00:00:00:01"
std::string macText(const Mac& mac);

} // namespace velarix::keeper
