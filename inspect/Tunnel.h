/// The WireGuard tunnel of the heartbeats: what its files say.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace velarix::inspect
{

/// A name of its own: a server may have a wg0 already.
inline constexpr char kTunnelInterface[] = "wg-ha";

/// Beside the settings file.
inline constexpr char kTunnelFile[] = "tunnel.conf";
inline constexpr char kTunnelKey[] = "tunnel.key";
inline constexpr char kTunnelPublicKey[] = "tunnel.pub";
inline constexpr char kPartnerKey[] = "partner.pub";

/// The public keys, this node's first, of a tunnel that has worked.
inline constexpr char kTunnelProven[] = "/var/lib/velarix-ha/tunnel-proven";

/// tunnel.conf; what is missing is empty.
struct TunnelSettings
{
	std::string address;   ///< of this node in the tunnel
	std::string partner;   ///< of the partner in the tunnel
	std::string endpoint;  ///< the partner's address outside
	std::string port;      ///< of the endpoint
	std::string keepalive; ///< seconds
};

TunnelSettings parseTunnel(const std::string& text);

/// @param settings the settings file beside which tunnel.conf stands
/// @return nothing for a node without a tunnel
/// @throws Failure when the file is there and cannot be read
std::optional<TunnelSettings> readTunnel(const std::filesystem::path& settings);

/// @param rules what "nft list" shows
/// @param outside the interface of the communication network
/// @param heartbeats the agent's port
/// @return whether the tunnel's port takes packets of the partner's endpoint alone, and the tunnel's
///         addresses and the heartbeats go through the tunnel alone
bool protectTunnel(const std::string& rules, const TunnelSettings& tunnel, const std::string& heartbeats,
                   const std::string& outside);

} // namespace velarix::inspect
