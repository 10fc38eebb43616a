#include "inspect/Host.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <memory>
#include <system_error>

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <sys/socket.h>

#include <Poco/String.h>
#include <Poco/StringTokenizer.h>

#include "inspect/Descriptor.h"
#include "inspect/EchoSocket.h"
#include "inspect/HostProgram.h"
#include "inspect/Number.h"
#include "inspect/Tunnel.h"

namespace velarix::inspect::host
{

std::optional<std::string> whyNoPing()
{
	const Descriptor raw(::socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_ICMP));
	return raw ? std::nullopt : std::optional(std::generic_category().message(errno));
}

bool ignoresPings()
{
	std::ifstream file("/proc/sys/net/ipv4/icmp_echo_ignore_all");
	char value = '0';
	return file.get(value) && value != '0';
}

Interface interface(const std::string& name)
{
	Interface result;
	const std::filesystem::path directory = std::filesystem::path("/sys/class/net") / name;
	std::error_code ignored;
	result.present = std::filesystem::is_directory(directory, ignored);
	std::ifstream file(directory / "carrier");
	if (char carrier = '\0'; file.get(carrier))
	{
		result.carrier = carrier == '1';
	}
	return result;
}

namespace
{

using List = std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)>;

/// @return what it prints, whatever its status: arping's says whether somebody has answered
std::string printedBy(const std::vector<std::string>& tool)
{
	const ProgramEnd end = runProgram({.arguments = tool});
	return end.inTime ? end.output : "";
}

/// @return what a tool prints; discarded when it is no JSON
nlohmann::json jsonOf(const std::vector<std::string>& tool)
{
	return nlohmann::json::parse(printedBy(tool), nullptr, /*allow_exceptions=*/false);
}

bool isAddress(const std::string& text)
{
	in_addr parsed{};
	return ::inet_pton(AF_INET, text.c_str(), &parsed) == 1;
}

/// "ip" shows the permanent address only where it is not the present one.
std::string permanentAddress(const nlohmann::json& link)
{
	std::ifstream file("/sys/class/net/" + link.value("ifname", "") + "/addr_assign_type");
	constexpr char kPermanent = '0';
	return link.value("permaddr", file.get() == kPermanent ? link.value("address", "") : "");
}

int prefixOf(const sockaddr* mask)
{
	return mask == nullptr ? 32 : std::popcount(reinterpret_cast<const sockaddr_in*>(mask)->sin_addr.s_addr);
}

} // namespace

std::vector<Link> links()
{
	const nlohmann::json all = jsonOf({"ip", "-j", "-d", "link", "show"});
	std::vector<Link> result;
	for (const nlohmann::json& link : all.is_array() ? all : nlohmann::json::array())
	{
		result.push_back({link.value("ifname", ""), link.value("link_type", ""),
		                  link.value("linkinfo", nlohmann::json::object()).value("info_kind", ""),
		                  link.value("address", ""), permanentAddress(link),
		                  link.value("altnames", std::vector<std::string>())});
	}
	return result;
}

std::optional<std::string> interfaceTo(const std::string& address)
{
	const nlohmann::json routes = isAddress(address) ? jsonOf({"ip", "-j", "route", "get", address}) : nlohmann::json();
	return routes.is_array() && !routes.empty() && routes[0].contains("dev")
	           ? std::optional<std::string>(routes[0]["dev"])
	           : std::nullopt;
}

std::optional<std::string> holderOf(const std::string& address, const std::string& interface)
{
	// "Unicast reply from 198.51.100.10 [52:54:00:00:00:02]  0.6ms"
	const std::string text =
	    isAddress(address) ? printedBy({"arping", "-D", "-c", "1", "-w", "1", "-I", interface, address}) : "";
	const std::size_t begin = text.find('[');
	const std::size_t end = text.find(']', begin);
	if (end == std::string::npos)
	{
		return std::nullopt;
	}
	std::string holder = Poco::toLower(text.substr(begin + 1, end - begin - 1));
	// Two interfaces on one network: this machine answers itself.
	for (const auto& entry : std::filesystem::directory_iterator("/sys/class/net"))
	{
		std::string own;
		if (std::ifstream(entry.path() / "address") >> own && own == holder)
		{
			return std::nullopt;
		}
	}
	return holder;
}

std::vector<Address> addresses()
{
	ifaddrs* all = nullptr;
	std::vector<Address> result;
	if (::getifaddrs(&all) != 0)
	{
		return result;
	}
	const List list(all, &::freeifaddrs);
	for (const ifaddrs* entry = all; entry != nullptr; entry = entry->ifa_next)
	{
		if (entry->ifa_addr != nullptr && entry->ifa_addr->sa_family == AF_INET)
		{
			const std::string label(entry->ifa_name);
			const bool first = std::ranges::find(result, label, &Address::label) == result.end();
			const std::string interface = label.substr(0, label.find(':'));
			// The kernel takes any label; "ifconfig" looks for the interface that it names.
			result.push_back({interface, label,
			                  ::inet_ntoa(reinterpret_cast<const sockaddr_in*>(entry->ifa_addr)->sin_addr),
			                  prefixOf(entry->ifa_netmask), first && ::if_nametoindex(interface.c_str()) != 0});
		}
	}
	return result;
}

bool hasMarker(const std::string& address)
{
	in6_addr wanted{};
	ifaddrs* first = nullptr;
	if (::inet_pton(AF_INET6, ("::" + address).c_str(), &wanted) != 1 || ::getifaddrs(&first) != 0)
	{
		return false;
	}
	const List list(first, &::freeifaddrs);
	for (const ifaddrs* entry = first; entry != nullptr; entry = entry->ifa_next)
	{
		const bool six = entry->ifa_addr != nullptr && entry->ifa_addr->sa_family == AF_INET6;
		const auto* internet = reinterpret_cast<const sockaddr_in6*>(entry->ifa_addr);
		if ((entry->ifa_name == address && (entry->ifa_flags & IFF_UP) != 0) ||
		    (six && (entry->ifa_flags & IFF_LOOPBACK) != 0 && IN6_ARE_ADDR_EQUAL(&internet->sin6_addr, &wanted)))
		{
			return true;
		}
	}
	return false;
}

std::optional<bool> answersPing(const std::string& address, int count)
{
	using Steady = std::chrono::steady_clock;
	constexpr std::chrono::milliseconds kPatience{100};
	EchoSocket socket(address);
	if (!socket)
	{
		return errno == EPERM ? std::nullopt : std::optional(false);
	}
	for (int sent = 1; sent <= count; ++sent)
	{
		socket.request();
		const Steady::time_point deadline = Steady::now() + kPatience;
		for (Steady::duration left = kPatience; left > Steady::duration::zero(); left = deadline - Steady::now())
		{
			pollfd wanted{socket.descriptor(), POLLIN, 0};
			const auto wait = std::chrono::ceil<std::chrono::milliseconds>(left).count();
			if (::poll(&wanted, 1, static_cast<int>(wait)) > 0 && socket.answer())
			{
				return true;
			}
		}
	}
	return false;
}

std::optional<TunnelSession> tunnelSession()
{
	const std::string dump = outputOf({"wg", "show", kTunnelInterface, "dump"});
	// The first line is the interface's own, and holds its private key.
	const std::size_t peer = dump.find('\n');
	const Poco::StringTokenizer fields(peer == std::string::npos ? "" : dump.substr(peer + 1), "\t\n");
	if (fields.count() < 8)
	{
		return std::nullopt;
	}
	TunnelSession session;
	if (const auto seconds = numberIn<std::int64_t>(fields[4]).value_or(0); seconds > 0)
	{
		session.handshake = std::chrono::system_clock::time_point(std::chrono::seconds(seconds));
	}
	session.received = numberIn<std::uint64_t>(fields[5]).value_or(0);
	session.sent = numberIn<std::uint64_t>(fields[6]).value_or(0);
	session.endpoint = fields[2];
	return session;
}

std::string tunnelRules()
{
	return outputOf({"nft", "list", "table", "inet", "velarix_tunnel"}) +
	       outputOf({"nft", "list", "table", "inet", "velarix"});
}

std::string rulesRefusal(const std::filesystem::path& file)
{
	const ProgramEnd end =
	    runProgram({.arguments = {"unshare", "-n", "nft", "-c", "-f", file.string()}, .environment = {"LC_ALL=C"}});
	// What the kernel refuses may be this kernel's fault, and begins with "Could not".
	const std::size_t error = end.errors.find(": Error: ");
	const std::string front = file.string() + ":";
	if (error == std::string::npos || end.errors.find("Could not", error) == error + 9 ||
	    !end.errors.starts_with(front))
	{
		return {};
	}
	return end.errors.substr(front.size(), end.errors.find('\n') - front.size());
}

std::string newTunnelKey()
{
	return Poco::trim(outputOf({"wg", "genkey"}));
}

std::string publicKeyOf(const std::string& privateKey)
{
	// Without wg nobody would read what is written.
	return privateKey.empty() ? "" : Poco::trim(outputOf({"wg", "pubkey"}, privateKey + "\n"));
}

} // namespace velarix::inspect::host
