/// keeper.ini: what the keeper is to hold and to run, read strictly. Everything in
/// the file that is not understood is a finding, with its line and its cure, for
/// "velarixctl check" and "keeper check"; the keeper itself starts only without errors.
///
///   [address]              once
///   [service NAME]         one for each program ha-NAME
///   [reachability]         at most once
///   key = value            a comment begins with ; or # at the line's beginning,
///                          or with ; behind a blank, outside quotes
#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace velarix::keeper
{

inline constexpr const char* kSettingsFile = "/usr/velarix/bin/ini/keeper.ini";
inline constexpr const char* kLinkDirectory = "/usr/velarix/run";
inline constexpr const char* kAddressProgram = "ha-address";
/// Not managed by the agent: it works on a standby as well.
inline constexpr const char* kReachProgram = "ha-reach";
/// What every managed program's name begins with.
inline constexpr std::string_view kPrefix = "ha-";
/// The kernel keeps this much of a program's name, and the agent looks there.
inline constexpr std::size_t kLongestName = 15;

struct Finding
{
	int line = 0;     ///< 0 when it is about the whole file
	int status = 0;   ///< of sysexits.h; 0: a warning that does not keep the keeper from working
	std::string text; ///< what is wrong
	std::string cure; ///< what to do
};

struct AddressSettings
{
	std::uint32_t address = 0; ///< in network byte order; 0 when there is none
	std::string text;          ///< the same, dotted
	/// 32: the kernel deletes the other addresses of a subnet together with the first
	/// one of it, and a host route never is the first of anybody else's.
	int prefix = 32;
	std::string interface;
	bool defend = false;
	int line = 0;

	/// @return what marks the address as raised by the keeper; the interface's name where that is too long
	std::string label() const;
};

struct ServiceSettings
{
	std::string program; ///< "ha-web"
	std::vector<std::string> command;
	std::string unit;
	std::string user;
	std::string group;
	std::string directory;
	std::vector<std::string> environment; ///< "NAME=value"
	std::vector<std::string> check;
	int checkInterval = 2; ///< seconds
	int checkFailures = 3;
	int checkTimeout = 0; ///< seconds; 0: half of checkInterval
	int restarts = 3;
	int restartsWithin = 60; ///< seconds
	int stopTimeout = 20;    ///< seconds
	int line = 0;
	int commandLine = 0;
	int userLine = 0;
};

struct ReachSettings
{
	std::string address; ///< GATEWAY_IP: on lo while enough targets answer
	std::vector<std::string> targets;
	int needed = 1;
	int interval = 1; ///< seconds
	int failures = 3; ///< unanswered pings in a row
	std::string own;  ///< of this node, on the communication network
	std::string partner;
	int port = 7000; ///< UDP, on both nodes
	int line = 0;    ///< 0: there is no such section
};

struct Settings
{
	AddressSettings address;
	ReachSettings reach;
	std::vector<ServiceSettings> services;
	std::filesystem::file_time_type written{}; ///< the file, as seen before it was read

	const ServiceSettings* find(std::string_view program) const;
};

struct ParsedSettings
{
	Settings settings;
	std::vector<Finding> findings;

	/// @return the first finding that is an error; nullptr for none
	const Finding* error() const;
};

/// What a service may be called, as a cure.
inline constexpr const char* kServiceName =
    "take at most 12 of the signs a to z, 0 to 9, - and _: the agent sees 15 characters of ha-NAME";
bool isServiceName(std::string_view name);

/// Reads the text of a keeper.ini. Looks at nothing but the text.
ParsedSettings parseSettings(std::string_view text);

/// Reads the file, which has to be there, to be a file, and to be below 1 MiB.
ParsedSettings readSettings(const char* path = kSettingsFile);

/// What this machine lacks for the settings: commands, users, directories, and (as
/// warnings) interfaces and links. Runs nothing.
std::vector<Finding> checkMachine(const Settings& settings);

/// Splits as a shell would, without any of its expansions: blanks separate, '...' and "..."
/// keep them, a backslash keeps the next character (inside "..." only " and \), and a word
/// that begins with ; is a comment with everything behind it.
/// @param written gets the words with their quotes
/// @return what is wrong: an open quote or a lone backslash; empty for nothing
std::string splitArguments(std::string_view text, std::vector<std::string>& arguments,
                           std::vector<std::string>* written = nullptr);

/// @return the file that execvp() would run for `command`; empty for none
std::string findCommand(const std::string& command);

/// A key of keeper.ini, for the parser, the manual and "keeper check".
struct KeyInfo
{
	const char* section; ///< "address", "service" or "reachability"
	const char* name;
	const char* meaning;
	const char* fallback; ///< the default; empty when the key must be there
	const char* range;
	/// Gets one word, or at least one when it may be `many`. @return whether they are in the range
	bool (*set)(Settings&, const std::vector<std::string>&);
	bool many = false;
};

std::span<const KeyInfo> keyTable();

/// Sets a key, of the last service if it is one of a service's.
/// @return what is wrong with the value; empty for nothing
std::string setKey(Settings& settings, const KeyInfo& key, std::string_view value);

} // namespace velarix::keeper
