#include "ctl/render/EventReport.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "ctl/history/OperatorLog.h"
#include "inspect/Printable.h"
#include "inspect/TimeText.h"

namespace velarix::ctl
{

using namespace inspect;

namespace
{

constexpr std::size_t kWordWidth = sizeof("takeover-unfinished") - 1;
constexpr std::size_t kSpanWidth = sizeof("12 min 59 s") - 1;

std::string reasonOf(Cause cause)
{
	static constexpr std::array<std::string_view, 17> reasons{
	    "",
	    "every agent starts as standby, without address and programs",
	    "no last word: it was killed, or its host went down",
	    "it ended itself",
	    "the gateway does not answer pings",
	    "the service address does not answer pings",
	    "the service interface (eth0) has no carrier",
	    "the managed programs do not run",
	    "the partner sent no heartbeat for the third time, and its address does not answer pings",
	    "neither the partner nor the service address answers pings, the gateway does",
	    "the partner gave up the service and asked",
	    "both nodes were standby: back to the configured role",
	    "both nodes were master: back to the configured role",
	    "this node takes the service",
	    "this node gives up the service",
	    "a planned move (velarixctl switchover)",
	    "the log does not tell why"};
	return std::string(reasons.at(static_cast<std::size_t>(cause)));
}

std::string faultText(const std::string& subject, bool there)
{
	struct Row
	{
		Fault fault;
		std::string_view found;
		std::string_view gone;
	};
	static constexpr std::array<Row, kFaults> rows{
	    {{Fault::gateway, "the gateway does not answer pings", "the gateway answers again"},
	     {Fault::partnerAddress, "the partner's address does not answer pings", "the partner's address answers again"},
	     {Fault::serviceAddress, "the service address does not answer pings", "the service address answers again"},
	     {Fault::serviceInterface, "the service interface (eth0) has no carrier",
	      "the service interface (eth0) has carrier again"},
	     {Fault::communicationInterface, "the communication interface (eth1) has no carrier",
	      "the communication interface (eth1) has carrier again"},
	     {Fault::programs, "the managed programs do not run on the master", "no longer without its programs"},
	     {Fault::heartbeats, "the partner's host answers pings, but no heartbeats come", "heartbeats come again"},
	     {Fault::partnerPort, "the partner does not take this node's heartbeats", "the partner takes them again"},
	     {Fault::bothMasters, "both nodes are master", "no longer two masters"},
	     {Fault::foreignMessage, "something else than a heartbeat came in", "nothing strange for a minute"}}};
	const auto* const row =
	    std::find_if(rows.begin(), rows.end(), [&](const Row& one) { return wordOf(one.fault) == subject; });
	return row == rows.end() ? subject : std::string(there ? row->found : row->gone);
}

std::string roles(const Event& event)
{
	return std::string(textOf(event.from)) + " -> " + std::string(textOf(event.to));
}

/// How an event is shown.
struct Wording
{
	EventKind kind;
	const char* colour;
	/// With marks for what the event tells: %p its process, %r the roles, %w why, %s what
	/// it is about, %f the fault, %d the detail. A piece in brackets is left out when
	/// its mark has nothing to tell.
	std::string_view text;
	/// In its place where the event has no duration.
	std::string_view withoutDuration = {};
};

constexpr char kBad[] = "\033[31m";
constexpr char kGood[] = "\033[32m";
constexpr char kNews[] = "\033[1m";
constexpr char kPlain[] = "";

// clang-format off
constexpr std::array<Wording, kEventKinds> kWordings{{
    {EventKind::agentStarted, kPlain, "process %p, after this time without an agent[; %d]", "process %p[; %d]"},
    {EventKind::agentResumed, kPlain,
     "process %p goes on: another agent was started beside it and could not stay"},
    {EventKind::agentEnded, kBad, "process %p: %w[: %d]"},
    {EventKind::roleChanged, kNews, "%r[: %w]"},
    {EventKind::takeOverBegan, kNews, "takes the service: %w"},
    {EventKind::takeOverDone, kNews, "has taken the service[: %d]"},
    {EventKind::takeOverUnfinished, kBad, "began to take the service and did not end it[: %d]"},
    {EventKind::askMade, kPlain, "asks the partner to take the service: %w"},
    {EventKind::askAnswered, kGood, "the partner has taken the service"},
    {EventKind::askUnanswered, kBad, "the partner stayed standby; this node no longer asks"},
    {EventKind::askReceived, kPlain, "the partner asks this node to take the service"},
    {EventKind::faultFound, kBad, "%f[: %d]"},
    {EventKind::faultGone, kGood, "%f[: %d]"},
    {EventKind::silenceCounted, kPlain, "no heartbeat from the partner, %d"},
    {EventKind::partnerLost, kBad, "no heartbeat from the partner for this time",
     "no heartbeat from the partner yet"},
    {EventKind::partnerBack, kGood, "heartbeats again, after this time", "the first heartbeat of the partner"},
    {EventKind::partnerChanged, kPlain, "the partner: %r"},
    {EventKind::partnerRestarted, kPlain, "the partner's agent was started anew[ at %d]"},
    {EventKind::addressDropped, kPlain, "the stop command was run[: %w][; it printed %d]"},
    {EventKind::addressStarting, kPlain,
     "the service address is not there; the start command follows in five seconds"},
    {EventKind::addressWaiting, kPlain,
     "the start command was run, but the service address does not answer pings"},
    {EventKind::addressFailed, kBad, "the service address cannot be raised, %d"},
    {EventKind::addressUp, kPlain, "the service address is there[: %d]"},
    {EventKind::programKilled, kPlain, "kill command for %s[: %w][; it printed %d]"},
    {EventKind::programsStarted, kPlain, "the run script was run"},
    {EventKind::programsRunning, kPlain, "the managed programs run[: %d]"},
    {EventKind::programsStopped, kPlain, "the managed programs do not run[: %w]"},
    {EventKind::logGap, kPlain, "nothing was logged for this time"},
    {EventKind::clockSetBack, kPlain, "the clock was set back by this time"},
    {EventKind::error, kBad, "%d"},
}};
// clang-format on

const Wording& wordingOf(EventKind kind)
{
	return *std::ranges::find(kWordings, kind, &Wording::kind);
}

std::string reported(char mark, const Event& event)
{
	switch (mark)
	{
	case 'p':
		return std::to_string(event.process);
	case 'r':
		return roles(event);
	case 'w':
		return reasonOf(event.cause);
	case 's':
		return event.subject;
	case 'f':
		return faultText(event.subject, event.kind == EventKind::faultFound);
	default:
		return event.detail;
	}
}

} // namespace

std::string describe(const Event& event)
{
	const Wording& wording = wordingOf(event.kind);
	const bool other = !event.duration && !wording.withoutDuration.empty();
	const std::string_view text = other ? wording.withoutDuration : wording.text;
	std::string result;
	std::size_t piece = 0;
	std::string figure;
	for (std::size_t at = 0; at < text.size(); ++at)
	{
		switch (text[at])
		{
		case '[':
			piece = result.size();
			break;
		case '%':
			figure = reported(text[++at], event);
			result += figure;
			break;
		case ']':
			result.resize(figure.empty() ? piece : result.size());
			break;
		default:
			result += text[at];
		}
	}
	return result;
}

std::string textHeader()
{
	return "TIME                   " + std::string("EVENT") + std::string(kWordWidth - 5 + 2, ' ') + "TOOK" +
	       std::string(kSpanWidth - 4 + 2, ' ') + "WHAT";
}

namespace
{

std::string padded(std::string text, std::size_t width)
{
	text.resize(std::max(text.size(), width), ' ');
	return text;
}

std::string columns(Instant time, std::string_view word, const std::string& span, const std::string& text,
                    const std::string& on)
{
	const auto milliseconds = std::chrono::duration_cast<Milliseconds>(time.time_since_epoch()).count() % 1000;
	return localText(time) + "." + std::to_string(milliseconds / 100) + "  " + on +
	       padded(std::string(word), kWordWidth) + (on.empty() ? "" : "\033[0m") + "  " + padded(span, kSpanWidth) +
	       "  " + printable(text);
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

std::string textLine(const Event& event, bool colour)
{
	const std::string line = columns(event.time, wordOf(event.kind), event.duration ? spanText(*event.duration) : "",
	                                 describe(event), colour ? wordingOf(event.kind).colour : "");
	return event.place.empty() ? line : line + "  [" + event.place + "]";
}

std::string_view severityOf(const Event& event)
{
	const std::string_view colour = wordingOf(event.kind).colour;
	return colour == kBad ? "problem" : colour == kGood ? "recovery" : colour == kNews ? "change" : "detail";
}

std::string_view severityOf(const KeeperEvent& event)
{
	constexpr std::array<std::string_view, 9> bad{"failed",  "killed",  "conflict", "died",   "check-failed",
	                                              "offline", "removed", "stalled",  "yielded"};
	constexpr std::array<std::string_view, 6> change{"raised",    "lowered",      "running",
	                                                 kSwitchover, kMaintenanceOn, kMaintenanceOff};
	return std::ranges::find(bad, event.word) != bad.end()         ? "problem"
	       : std::ranges::find(change, event.word) != change.end() ? "change"
	                                                               : "detail";
}

std::string textLine(const KeeperEvent& event, bool colour)
{
	const bool bad = severityOf(event) == "problem";
	return columns(event.time, sourceOf(event), "", describe(event), colour && bad ? kBad : "");
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
