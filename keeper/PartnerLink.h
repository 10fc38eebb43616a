/// The question to the partner's keeper whether it reaches its targets: one datagram each
/// way, over the communication network.
///
///   byte 0      version, 1
///   byte 1      0 question, 1 answer
///   byte 2      of an answer: PartnerWord
///   byte 3      0
///   byte 4-19   nonce of the question, the same in its answer
///   byte 20-51  HMAC-SHA256 of the bytes before and the sender's address
///
/// An answer counts for the question that is open and for no other, so that a recorded one is
/// worth nothing; the sender's address keeps a node's own packets from being sent back
/// to it as the partner's. An answer is as long as its question and goes to the partner alone.
/// Nothing in it is secret.
///
/// The hash comes from Nettle: it is on every Debian (the package manager verifies with it),
/// and costs a process 30 KB, where OpenSSL's libcrypto costs 0.4 MB. The kernel's
/// own (AF_ALG) is blacklisted on hardened machines.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "inspect/Descriptor.h"
#include "keeper/AddressMachine.h"
#include "keeper/Settings.h"

namespace velarix::keeper
{

using inspect::Descriptor;

inline constexpr const char* kKeyFile = "/usr/velarix/bin/ini/reachability.key";

using Key = std::array<std::uint8_t, 32>;

/// Reads 64 hexadecimal digits. The file has to be root's and nobody else's to read.
/// @return nothing, with what is wrong in `error`
std::optional<Key> readKey(const std::string& path, std::string& error);

enum class PartnerWord : std::uint8_t
{
	fails = 0,   ///< too few of its targets answer
	reaches = 1, ///< enough do
	ready = 2    ///< and its agent can take the service
};

using Datagram = std::array<std::uint8_t, 52>;
using Nonce = std::array<std::uint8_t, 16>;

/// @param sender in network byte order
Datagram seal(const Key& key, std::uint32_t sender, std::uint8_t kind, PartnerWord word, const Nonce& nonce);
/// @return whether `sender` has sealed it with that key
bool isGenuine(const Datagram& datagram, const Key& key, std::uint32_t sender);

class PartnerLink
{
public:
	/// Called for a question of the partner.
	using Say = std::function<PartnerWord()>;

	PartnerLink(const ReachSettings& settings, const std::optional<Key>& key, Say say);

	/// Tries to be reachable. Without a route to the partner it is tried again.
	/// @return whether the descriptor is new
	bool open();
	/// @return why the port could not be taken, as errno; 0 when it could
	int bindError() const { return m_bindError; }
	int descriptor() const { return m_socket.get(); }
	void ask();
	/// Reads at most `limit` datagrams, answers questions.
	/// @return the partner's answer to ask(), once; `limit` is 0 afterwards when there is more
	std::optional<PartnerWord> read(int& limit);

private:
	void send(std::uint8_t kind, PartnerWord word, const Nonce& nonce) const;

	std::uint32_t m_own = 0;
	std::uint32_t m_partner = 0;
	std::uint16_t m_port = 0;
	std::optional<Key> m_key;
	Say m_say;
	std::optional<Nonce> m_open; ///< of the question that has no answer yet
	Millis m_openedAt = 0;
	int m_bindError = 0;
	Descriptor m_socket;
};

} // namespace velarix::keeper
