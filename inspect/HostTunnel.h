/// What is asked of this machine's WireGuard and packet filter. Part of the seam that Host.h describes.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace velarix::inspect::host
{

/// The session with the partner.
struct TunnelSession
{
	/// Nothing before the first one.
	std::optional<std::chrono::system_clock::time_point> handshake;
	/// Bytes since the tunnel came up.
	std::uint64_t received = 0;
	std::uint64_t sent = 0;
	/// The partner's address and port outside, "192.0.2.2:51871".
	std::string endpoint;
};

/// @return nothing without the interface or a peer, or when this user may not ask
std::optional<TunnelSession> tunnelSession();

/// @return the packet filter's tables of this node; empty when they are not loaded, or this user may not ask
std::string tunnelRules();

/// Has nft read a file of rules, in a network of its own: nothing is loaded.
/// @return its first error in the text, "8:1-4: Error: syntax error, ..."; empty for none, or when
///         this user may not ask
std::string rulesRefusal(const std::filesystem::path& file);

/// @return a new private key; empty without wireguard-tools
std::string newTunnelKey();
/// @return the public key of it; empty when it is none
std::string publicKeyOf(const std::string& privateKey);

} // namespace velarix::inspect::host
