#include "keeper/PartnerLink.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <nettle/hmac.h>
#include <nettle/memops.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include "inspect/Number.h"
#include "keeper/ReachMachine.h"
#include "keeper/Runtime.h"

namespace velarix::keeper
{

namespace
{

constexpr std::uint8_t kVersion = 1;
constexpr std::uint8_t kQuestion = 0;
constexpr std::uint8_t kAnswer = 1;
constexpr std::size_t kNonceAt = 4;
constexpr std::size_t kSealed = kNonceAt + std::tuple_size_v<Nonce>;

std::array<std::uint8_t, SHA256_DIGEST_SIZE> hash(const Datagram& datagram, const Key& key, std::uint32_t sender)
{
	std::array<std::uint8_t, sizeof sender> address{};
	std::memcpy(address.data(), &sender, sizeof sender);
	hmac_sha256_ctx context{};
	hmac_sha256_set_key(&context, key.size(), key.data());
	hmac_sha256_update(&context, kSealed, datagram.data());
	hmac_sha256_update(&context, address.size(), address.data());
	std::array<std::uint8_t, SHA256_DIGEST_SIZE> result{};
	hmac_sha256_digest(&context, result.size(), result.data());
	return result;
}

sockaddr_in placeOf(std::uint32_t address, std::uint16_t port)
{
	sockaddr_in place{};
	place.sin_family = AF_INET;
	place.sin_port = htons(port);
	place.sin_addr.s_addr = address;
	return place;
}

} // namespace

std::optional<Key> readKey(const std::string& path, std::string& error)
{
	const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
	struct stat status = {};
	if (!file || ::fstat(file.get(), &status) != 0)
	{
		error = path + ": " + std::strerror(errno);
		return std::nullopt;
	}
	if (!S_ISREG(status.st_mode) || status.st_uid != 0 || (status.st_mode & 077U) != 0)
	{
		error = path + " is not a file that root alone may read";
		return std::nullopt;
	}
	Key key{};
	std::array<char, 2 * key.size()> digits{};
	bool valid = ::read(file.get(), digits.data(), digits.size()) == static_cast<ssize_t>(digits.size());
	for (std::size_t i = 0; i < key.size(); ++i)
	{
		const auto byte = inspect::numberIn<std::uint8_t>({&digits.at(2 * i), 2}, 16);
		valid = valid && byte;
		key.at(i) = byte.value_or(0);
	}
	error = valid ? "" : path + " does not begin with 64 hexadecimal digits";
	return valid ? std::optional(key) : std::nullopt;
}

Datagram seal(const Key& key, std::uint32_t sender, std::uint8_t kind, PartnerWord word, const Nonce& nonce)
{
	Datagram datagram{kVersion, kind, static_cast<std::uint8_t>(word), 0};
	std::ranges::copy(nonce, datagram.begin() + kNonceAt);
	std::ranges::copy(hash(datagram, key, sender), datagram.begin() + kSealed);
	return datagram;
}

bool isGenuine(const Datagram& datagram, const Key& key, std::uint32_t sender)
{
	const auto expected = hash(datagram, key, sender);
	return datagram[0] == kVersion && memeql_sec(expected.data(), datagram.data() + kSealed, expected.size()) != 0;
}

PartnerLink::PartnerLink(const ReachSettings& settings, const std::optional<Key>& key, Say say)
    : m_own(::inet_addr(settings.own.c_str())), m_partner(::inet_addr(settings.partner.c_str())),
      m_port(static_cast<std::uint16_t>(settings.port)), m_key(key), m_say(std::move(say))
{
}

bool PartnerLink::open()
{
	if (m_socket || !m_key)
	{
		return false;
	}
	m_socket = Descriptor(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
	// At boot the address may come later.
	const int on = 1;
	::setsockopt(m_socket.get(), IPPROTO_IP, IP_FREEBIND, &on, sizeof on);
	const sockaddr_in own = placeOf(m_own, m_port);
	const sockaddr_in partner = placeOf(m_partner, m_port);
	// Connected, it gets packets of the partner's address alone.
	const bool bound = ::bind(m_socket.get(), reinterpret_cast<const sockaddr*>(&own), sizeof own) == 0;
	m_bindError = bound ? 0 : errno;
	if (!bound || ::connect(m_socket.get(), reinterpret_cast<const sockaddr*>(&partner), sizeof partner) != 0)
	{
		m_socket.close();
	}
	return static_cast<bool>(m_socket);
}

void PartnerLink::send(std::uint8_t kind, PartnerWord word, const Nonce& nonce) const
{
	const Datagram datagram = seal(*m_key, m_own, kind, word, nonce);
	[[maybe_unused]] const ssize_t size = ::send(m_socket.get(), datagram.data(), datagram.size(), MSG_NOSIGNAL);
}

void PartnerLink::ask()
{
	if (!m_socket)
	{
		return;
	}
	// Asked again soon, it is the same question: its answer may be late.
	if (!m_open || now() - m_openedAt > timing::kAskFor)
	{
		Nonce nonce{};
		[[maybe_unused]] const ssize_t length = ::getrandom(nonce.data(), nonce.size(), 0);
		m_open = nonce;
		m_openedAt = now();
	}
	send(kQuestion, PartnerWord::fails, *m_open);
}

std::optional<PartnerWord> PartnerLink::read(int& limit)
{
	std::array<std::uint8_t, std::tuple_size_v<Datagram> + 1> bytes{};
	for (; limit > 0; --limit)
	{
		const ssize_t size = ::recv(m_socket.get(), bytes.data(), bytes.size(), 0);
		// A partner without a keeper refuses: an error of the socket that comes before its datagrams.
		if (size < 0 && errno != ECONNREFUSED)
		{
			return std::nullopt;
		}
		Datagram datagram{};
		std::copy_n(bytes.begin(), datagram.size(), datagram.begin());
		if (size != static_cast<ssize_t>(datagram.size()) ||
		    datagram[2] > static_cast<std::uint8_t>(PartnerWord::ready) || !isGenuine(datagram, *m_key, m_partner))
		{
			continue;
		}
		Nonce nonce{};
		std::copy_n(datagram.begin() + kNonceAt, nonce.size(), nonce.begin());
		if (datagram[1] == kQuestion)
		{
			send(kAnswer, m_say(), nonce);
		}
		else if (datagram[1] == kAnswer && m_open == nonce && now() - m_openedAt <= 2 * timing::kAskFor)
		{
			m_open.reset();
			return static_cast<PartnerWord>(datagram[2]);
		}
	}
	return std::nullopt;
}

} // namespace velarix::keeper
