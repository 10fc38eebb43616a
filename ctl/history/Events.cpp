// What events, causes and faults are called, what they mean in words, and how they are shown.

#include "ctl/history/Events.h"

#include <algorithm>
#include <iomanip>
#include <sstream>

#include <nlohmann/json.hpp>

#include "ctl/render/StateViews.h"
#include "inspect/Pattern.h"
#include "inspect/TimeText.h"

namespace velarix::ctl
{

namespace
{

constexpr std::string_view kProblem = "problem";
constexpr std::string_view kRecovery = "recovery";
constexpr std::string_view kChange = "change";
constexpr std::string_view kDetail = "detail";

/// How an event is shown.
struct Wording
{
	std::string_view word;
	std::string_view severity;
	/// With marks for what the event tells: %p its process, %r the roles, %w why, %s what
	/// it is about, %f the fault, %d the detail. A piece in brackets, which ends with its
	/// mark, is left out when that has nothing to tell.
	std::string_view text;
	/// In its place where the event has no duration.
	std::string_view withoutDuration = {};
};

struct CauseWording
{
	std::string_view word;
	std::string_view reason;
};

struct FaultWording
{
	std::string_view word;
	std::string_view found;
	std::string_view gone;
};

// A row for each enumerator, in their order.
// clang-format off
constexpr std::array<Wording, kEventKinds> kKinds{{
    {"agent-started", kDetail, "process %p, after this time without an agent[; %d]", "process %p[; %d]"},
    {"agent-resumed", kDetail, "process %p goes on: another agent was started beside it and could not stay"},
    {"agent-ended", kProblem, "process %p: %w[: %d]"},
    {"role-changed", kChange, "%r[: %w]"},
    {"takeover-began", kChange, "takes the service: %w"},
    {"takeover-done", kChange, "has taken the service[: %d]"},
    {"takeover-unfinished", kProblem, "began to take the service and did not end it[: %d]"},
    {"ask-made", kDetail, "asks the partner to take the service: %w"},
    {"ask-answered", kRecovery, "the partner has taken the service"},
    {"ask-unanswered", kProblem, "the partner stayed standby; this node no longer asks"},
    {"ask-received", kDetail, "the partner asks this node to take the service"},
    {"fault-found", kProblem, "%f[: %d]"},
    {"fault-gone", kRecovery, "%f[: %d]"},
    {"silence-counted", kDetail, "no heartbeat from the partner, %d"},
    {"partner-lost", kProblem, "no heartbeat from the partner for this time", "no heartbeat from the partner yet"},
    {"partner-back", kRecovery, "heartbeats again, after this time", "the first heartbeat of the partner"},
    {"partner-changed", kDetail, "the partner: %r"},
    {"partner-restarted", kDetail, "the partner's agent was started anew[ at %d]"},
    {"address-dropped", kDetail, "the stop command was run[: %w][; it printed %d]"},
    {"address-starting", kDetail, "the service address is not there; the start command follows in five seconds"},
    {"address-waiting", kDetail, "the start command was run, but the service address does not answer pings"},
    {"address-failed", kProblem, "the service address cannot be raised, %d"},
    {"address-up", kDetail, "the service address is there[: %d]"},
    {"program-killed", kDetail, "kill command for %s[: %w][; it printed %d]"},
    {"programs-started", kDetail, "the run script was run"},
    {"programs-running", kDetail, "the managed programs run[: %d]"},
    {"programs-stopped", kDetail, "the managed programs do not run[: %w]"},
    {"log-gap", kDetail, "nothing was logged for this time"},
    {"clock-set-back", kDetail, "the clock was set back by this time"},
    {"error", kProblem, "%d"},
}};

constexpr std::array<CauseWording, 17> kCauses{{
    {"none", ""},
    {"agent-start", "every agent starts as standby, without address and programs"},
    {"killed", "no last word: it was killed, or its host went down"},
    {"fatal-error", "it ended itself"},
    {"gateway-silent", "the gateway does not answer pings"},
    {"service-address-silent", "the service address does not answer pings"},
    {"service-interface-down", "the service interface (eth0) has no carrier"},
    {"programs-gone", "the managed programs do not run"},
    {"partner-silent", "the partner sent no heartbeat for the third time, and its address does not answer pings"},
    {"partner-and-service-silent", "neither the partner nor the service address answers pings, the gateway does"},
    {"partner-asked", "the partner gave up the service and asked"},
    {"configured-role", "both nodes were standby: back to the configured role"},
    {"both-masters", "both nodes were master: back to the configured role"},
    {"takeover", "this node takes the service"},
    {"give-up", "this node gives up the service"},
    {"switchover", "a planned move (velarixctl switchover)"},
    {"not-logged", "the log does not tell why"},
}};

constexpr std::array<FaultWording, kFaults> kFaultWordings{{
    {"gateway", "the gateway does not answer pings", "the gateway answers again"},
    {"partner-address", "the partner's address does not answer pings", "the partner's address answers again"},
    {"service-address", "the service address does not answer pings", "the service address answers again"},
    {"service-interface", "the service interface (eth0) has no carrier", "the service interface (eth0) has carrier again"},
    {"communication-interface", "the communication interface (eth1) has no carrier", "the communication interface (eth1) has carrier again"},
    {"programs", "the managed programs do not run on the master", "no longer without its programs"},
    {"heartbeats", "the partner's host answers pings, but no heartbeats come", "heartbeats come again"},
    {"partner-port", "the partner does not take this node's heartbeats", "the partner takes them again"},
    {"both-masters", "both nodes are master", "no longer two masters"},
    {"foreign-message", "something else than a heartbeat came in", "nothing strange for a minute"},
}};
// clang-format on

template <typename Table, typename Value> const auto& rowOf(const Table& table, Value value)
{
	return table.at(static_cast<std::size_t>(value));
}

std::string reported(char mark, const Event& event)
{
	const auto* const fault = std::ranges::find(kFaultWordings, event.subject, &FaultWording::word);
	switch (mark)
	{
	case 'p':
		return std::to_string(event.process);
	case 'r':
		return std::string(textOf(event.from)) + " -> " + std::string(textOf(event.to));
	case 'w':
		return std::string(rowOf(kCauses, event.cause).reason);
	case 's':
		return event.subject;
	case 'f':
		return fault == kFaultWordings.end()
		           ? event.subject
		           : std::string(event.kind == EventKind::faultFound ? fault->found : fault->gone);
	default:
		return event.detail;
	}
}

constexpr int kTimeWidth = sizeof("2026-11-21 09:07:05.3") - 1;
constexpr int kWordWidth = sizeof("takeover-unfinished") - 1;
constexpr int kSpanWidth = sizeof("12 min 59 s") - 1;

/// The colour of what has this severity.
std::string colourOf(std::string_view severity)
{
	return severity == "problem"    ? "\033[31m"
	       : severity == "recovery" ? "\033[32m"
	       : severity == "change"   ? "\033[1m"
	                                : "";
}

std::string timeText(Instant time)
{
	const auto milliseconds = std::chrono::duration_cast<Milliseconds>(time.time_since_epoch()).count() % 1000;
	return localText(time) + "." + std::to_string(milliseconds / 100);
}

/// @param on  makes the word coloured; empty for none
std::string columns(const std::string& time, std::string_view word, const std::string& span, const std::string& text,
                    const std::string& on)
{
	std::ostringstream line;
	line << std::left << std::setw(kTimeWidth) << time << "  " << on << std::setw(kWordWidth) << word
	     << (on.empty() ? "" : "\033[0m") << "  " << std::setw(kSpanWidth) << span << "  " << printable(text);
	return line.str();
}

std::string_view sourceOf(const KeeperEvent& event)
{
	return event.program == kOperator ? "operator" : "keeper";
}

std::string describe(const KeeperEvent& event)
{
	return event.program + " " + event.word + ": " + event.detail;
}

} // namespace

std::string_view wordOf(EventKind kind)
{
	return rowOf(kKinds, kind).word;
}

std::string_view wordOf(Cause cause)
{
	return rowOf(kCauses, cause).word;
}

std::string_view wordOf(Fault fault)
{
	return rowOf(kFaultWordings, fault).word;
}

std::string_view wordOf(Role role)
{
	return role == Role::master ? "master" : role == Role::slave ? "slave" : "not known";
}

std::string_view textOf(Role role)
{
	return role == Role::slave ? "standby" : wordOf(role);
}

std::string_view severityOf(const Event& event)
{
	return rowOf(kKinds, event.kind).severity;
}

std::string describe(const Event& event)
{
	static const Pattern kMark(R"(\[([^%\]]*)%([a-z])\]|%([a-z]))");
	const Wording& wording = rowOf(kKinds, event.kind);
	const bool other = !event.duration && !wording.withoutDuration.empty();
	const std::string text(other ? wording.withoutDuration : wording.text);
	std::string result;
	std::size_t at = 0;
	for (const Pattern::Groups& mark : kMark.all(text))
	{
		const std::size_t begin = text.find(mark[0], at);
		const std::string figure = reported((mark[2] + mark[3]).front(), event);
		result += text.substr(at, begin - at) + (figure.empty() ? "" : mark[1] + figure);
		at = begin + mark[0].size();
	}
	return result + text.substr(at);
}

std::string textHeader()
{
	return columns("TIME", "EVENT", "TOOK", "WHAT", "");
}

std::string textLine(const Event& event, bool colour)
{
	const std::string line =
	    columns(timeText(event.time), wordOf(event.kind), event.duration ? spanText(*event.duration) : "",
	            describe(event), colour ? colourOf(severityOf(event)) : "");
	return event.place.empty() ? line : line + "  [" + event.place + "]";
}

std::string_view severityOf(const KeeperEvent& event)
{
	constexpr std::array<std::string_view, 9> bad{"failed",  "killed",  "conflict", "died",   "check-failed",
	                                              "offline", "removed", "stalled",  "yielded"};
	constexpr std::array<std::string_view, 7> change{"raised",    "lowered",      "running",      "restarted",
	                                                 kSwitchover, kMaintenanceOn, kMaintenanceOff};
	return std::ranges::find(bad, event.word) != bad.end()         ? "problem"
	       : std::ranges::find(change, event.word) != change.end() ? "change"
	                                                               : "detail";
}

std::string textLine(const KeeperEvent& event, bool colour)
{
	const std::string_view severity = severityOf(event);
	return columns(timeText(event.time), sourceOf(event), "", describe(event),
	               colour && severity == "problem" ? colourOf(severity) : "");
}

nlohmann::ordered_json eventJson(const KeeperEvent& event)
{
	return {{"time", isoText(event.time)},       {"event", sourceOf(event)}, {"pid", event.process},
	        {"subject", event.program},          {"word", event.word},       {"detail", printable(event.detail)},
	        {"text", printable(describe(event))}};
}

nlohmann::ordered_json eventJson(const Event& event)
{
	nlohmann::ordered_json json;
	json["time"] = isoText(event.time);
	json["event"] = wordOf(event.kind);
	json["pid"] = event.process;
	if (event.kind == EventKind::roleChanged || event.kind == EventKind::partnerChanged)
	{
		json["from"] = wordOf(event.from);
		json["to"] = wordOf(event.to);
	}
	if (event.cause != Cause::none)
	{
		json["cause"] = wordOf(event.cause);
	}
	if (event.duration)
	{
		json["duration_seconds"] = inSeconds(*event.duration);
	}
	for (const auto& [name, value] : {std::pair("subject", event.subject), std::pair("detail", event.detail)})
	{
		if (!value.empty())
		{
			json[name] = printable(value);
		}
	}
	json["text"] = printable(describe(event));
	if (!event.place.empty())
	{
		json["place"] = event.place;
	}
	return json;
}

} // namespace velarix::ctl
