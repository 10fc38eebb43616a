/// What is asked of this machine: files' rights, tools, interfaces, addresses,
/// privileges, processes. All of it goes through these functions, so that a
/// test links answers of its own in their place (tests/ctl/FakeHost).
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace velarix::inspect::host
{

/// ---- files -------------------------------------------------------------

enum class FileKind
{
	missing,
	regular,
	directory,
	other,
	/// A directory above it cannot be searched by this user.
	notKnown
};

struct FileFacts
{
	FileKind kind = FileKind::missing;
	/// Permission bits alone (07777).
	mode_t mode = 0;
	uid_t owner = 0;
	gid_t group = 0;
	/// Nothing on its file system may be executed.
	bool noExec = false;
	/// Nothing on its file system may be written.
	bool readOnly = false;
	/// Its file system goes with a reboot.
	bool inMemory = false;
};

/// Follows symbolic links.
FileFacts fileFacts(const std::filesystem::path& path);

/// @return when the file's content was changed last; nothing without the file
std::optional<std::chrono::system_clock::time_point> changedAt(const std::filesystem::path& path);

/// ---- privileges ----------------------------------------------------------

/// @return the effective user id
uid_t user();

/// @return the host's name; empty when the kernel does not tell
std::string name();

/// Tries to open the raw socket that a ping needs.
/// @return nothing when it may be opened, else the system's reason
std::optional<std::string> whyNoPing();

/// @return whether the kernel has been set to answer no ping at all
bool ignoresPings();

/// ---- interfaces and addresses -------------------------------------------------

struct Interface
{
	bool present = false;
	/// Not known for an interface that is down.
	std::optional<bool> carrier;
};

/// As the agent sees it: an alternative name does not count.
Interface interface(const std::string& name);

/// What the kernel knows of an interface beside its addresses.
struct Link
{
	std::string name;
	/// "ether", "loopback" ...
	std::string type;
	/// "bond", "vlan", "veth" ...; empty for hardware.
	std::string kind;
	/// Hardware address as it is now.
	std::string address;
	/// The one that the hardware brought along; empty where there is none.
	std::string permanent;
	std::vector<std::string> alternatives;
};

/// @return the interfaces of this machine, in the order in which the kernel found them
std::vector<Link> links();

struct Address
{
	std::string interface;
	/// As the kernel has it: "eth0:ha", or the interface's own name without a label.
	std::string label;
	/// Dotted IPv4.
	std::string address;
	int prefix = 0;
	/// `ifconfig` lists it: the first address of each label only.
	bool listed = false;
};

/// @return the IPv4 addresses of this machine
std::vector<Address> addresses();

/// @param address dotted IPv4
/// @return the interface by which packets leave for it, "lo" for an address of this
///         machine; nothing without a route
std::optional<std::string> interfaceTo(const std::string& address);

/// Asks by ARP who has an address, for a second, in the name of no address.
/// @return the hardware address of another host that answers; nothing when none does,
///         or when this user may not ask
std::optional<std::string> holderOf(const std::string& address, const std::string& interface);

/// @return whether the keeper's marker of the address is there: ::ADDRESS on lo, or an interface
///         that is called ADDRESS and up
bool hasMarker(const std::string& address);

/// Sends up to `count` echo requests, a tenth of a second of patience each.
/// @param address dotted IPv4; no name is resolved
/// @return whether one was answered; nothing when this user may not ask
std::optional<bool> answersPing(const std::string& address, int count);

/// ---- ports and disk space -------------------------------------------------------

/// Tries to listen as the agent does, and stops at once.
/// @return whether another program has the port
bool isPortTaken(const std::string& address, int port);

/// @return whether the kernel may give the port to an outgoing connection;
///         nothing when it does not tell
std::optional<bool> isOutgoingPort(int port);

/// @return the bytes that root may still write there; nothing when it is not known
std::optional<std::uintmax_t> freeSpace(const std::filesystem::path& directory);

/// @return how many files may still be made there; nothing when it is not known or
///         the file system has no such limit
std::optional<std::uintmax_t> freeFiles(const std::filesystem::path& directory);

/// ---- the tunnel of the heartbeats --------------------------------------------------

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

/// ---- what a hand-over does -------------------------------------------------------

enum class CommandEnd
{
	/// It ran to its end, well or not.
	ended,
	/// It took longer than allowed and was killed.
	tooLong,
	/// The kernel gave it no network namespace; it was not run.
	noNamespace,
	/// No process could be made for it.
	notStarted
};

/// Runs a line through /bin/sh in a network namespace of its own, which holds
/// no interface: what the line does to processes and files happens, what it does to
/// addresses and routes does not. What it prints goes to standard error.
CommandEnd runWithoutNetwork(const std::string& command, std::chrono::milliseconds limit);

/// Sends a signal to a process.
/// @param name short name it must have, so that no other process that got the
///             same id meanwhile is hit
/// @return false when it is gone, is another one or may not be signalled
bool signalProcess(pid_t pid, const std::string& name, int signal);

/// Waits; the only wait of the verbs that watch something.
void pause(std::chrono::milliseconds time);

/// @return lines of the terminal that is standard output; 0 when that is not known
std::size_t windowLines();

/// @return a time that no setting of the clock changes, from any beginning
std::chrono::milliseconds elapsed();

} // namespace velarix::inspect::host
