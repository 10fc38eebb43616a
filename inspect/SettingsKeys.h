/// The settings: what each key means and what it does to the daemon. The rows are made of
/// settings-keys.toml by settings-table.py, as is the manual page of the file.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace velarix::inspect
{

namespace key
{
inline constexpr char kMode[] = "AGENT.MODE";
inline constexpr char kThisServerIP[] = "AGENT.THIS_SERVER_IP";
inline constexpr char kReceivePort[] = "AGENT.HEART_BEAT_RECEIVE_PORT";
inline constexpr char kPartnerIP[] = "AGENT.PARTNER_IP";
inline constexpr char kPartnerPort[] = "AGENT.PARTNER_HEART_BEAT_RECEIVE_PORT";
inline constexpr char kInterval[] = "AGENT.HEART_BEAT_INTERVAL";
inline constexpr char kReceivingTime[] = "AGENT.MAX_HEART_BEAT_RECEIING_TIME";
inline constexpr char kIgnoreTime[] = "AGENT.IGNORE_TIME";
inline constexpr char kGatewayIP[] = "AGENT.GATEWAY_IP";
inline constexpr char kVirtualIP[] = "AGENT.VIRTUAL_IP";
inline constexpr char kStartCommand[] = "AGENT.VIRTUAL_IP_START_COMMAND";
inline constexpr char kStopCommand[] = "AGENT.VIRTUAL_IP_STOP_COMMAND";
inline constexpr char kWaitingTime[] = "AGENT.WAITING_TIME_BEFORE_PROCESS_RUN";
inline constexpr char kRelatedProcess[] = "AGENT.RELATED_PROCESS";
inline constexpr char kProcessNumber[] = "PROCESS_CHECK.PROCESS_NUM";
/// With the program's number from 1 appended.
inline constexpr char kProcessPath[] = "PROCESS_CHECK.PROCESS_PATH";
inline constexpr char kCheckCycle[] = "PROCESS_CHECK.PROCESS_CHECK_CYCLE";
inline constexpr char kObservationMode[] = "PROCESS_CHECK.OBSERVATION_MODE";
inline constexpr char kKillCommand[] = "ADVENCE.PROCESS_KILL_COMMAND";
inline constexpr char kKeyword[] = "ADVENCE.KEYWORD";
inline constexpr char kLogPath[] = "LOG.PATH";
inline constexpr char kPurgeAge[] = "LOG.PURGEAGE";
} // namespace key

enum class KeyType
{
	integer,
	/// Dotted IPv4 address.
	address,
	/// Line for the shell, run as root.
	command,
	path,
	text
};

struct KeyInfo
{
	/// "SECTION.KEY"; PROCESS_CHECK.PROCESS_PATH stands for all its numbers.
	std::string_view name;
	KeyType type;
	/// "seconds", "port", ...; empty without one.
	std::string_view unit;
	std::string_view meaning;
	/// When the daemon reads it from the values it loaded at its start.
	std::string_view whenRead;
	/// What the daemon does when the key is not there.
	std::string_view missing;
	/// What an empty text or the number zero does.
	std::string_view zero;
	/// What a negative number does; empty for texts.
	std::string_view negative;
	std::string_view example;
};

/// @return whether two keys are the same to the parser (letter case ignored)
bool sameKey(std::string_view left, std::string_view right);

/// @return all keys, in the order in which they stand in the file
std::span<const KeyInfo> settingsKeys();

/// @return the key's row (PROCESS_PATH7 gives that of PROCESS_PATH); null for an
///         unknown one
const KeyInfo* findKey(std::string_view name);

/// @return what an empty text does, as a sentence of its own
std::string emptyEffect(const KeyInfo& info);

/// @return the key of a managed program, from 1
std::string programKey(int number);

} // namespace velarix::inspect
