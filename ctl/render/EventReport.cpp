#include "ctl/render/EventReport.h"

#include <algorithm>
#include <array>
#include <cstdio>

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
	static constexpr std::array<std::string_view, 16> reasons{
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
	     {Fault::serviceCard, "the service interface (eth0) has no carrier",
	      "the service interface (eth0) has carrier again"},
	     {Fault::communicationCard, "the communication interface (eth1) has no carrier",
	      "the communication interface (eth1) has carrier again"},
	     {Fault::programs, "the managed programs do not run on the master", "no longer without its programs"},
	     {Fault::heartbeats, "the partner's host answers pings, but no heartbeats come", "heartbeats come again"},
	     {Fault::partnerPort, "the partner does not take this node's heartbeats", "the partner takes them again"},
	     {Fault::bothMasters, "both nodes are master", "no longer two masters"},
	     {Fault::stranger, "something else than a heartbeat came in", "nothing strange for a minute"}}};
	const auto* const row =
	    std::find_if(rows.begin(), rows.end(), [&](const Row& one) { return wordOf(one.fault) == subject; });
	return row == rows.end() ? subject : std::string(there ? row->found : row->gone);
}

/// Puts two parts together, the second of which may be missing.
std::string joined(const std::string& first, const std::string& between, const std::string& second)
{
	return second.empty() ? first : first + between + second;
}

std::string roles(const Event& event)
{
	return std::string(textOf(event.from)) + " -> " + std::string(textOf(event.to));
}

std::string pid(const Event& event)
{
	return "process " + std::to_string(event.process);
}

std::string agentText(const Event& event)
{
	switch (event.kind)
	{
	case EventKind::agentStarted:
		return joined(pid(event) + (event.duration ? ", after this time without an agent" : ""), "; ", event.detail);
	case EventKind::agentResumed:
		return pid(event) + " goes on: another agent was started beside it and could not stay";
	default:
		return joined(pid(event) + ": " + reasonOf(event.cause), ": ", event.detail);
	}
}

std::string askText(EventKind kind)
{
	switch (kind)
	{
	case EventKind::askAnswered:
		return "the partner has taken the service";
	case EventKind::askUnanswered:
		return "the partner stayed standby; this node no longer asks";
	default:
		return "the partner asks this node to take the service";
	}
}

std::string partnerText(const Event& event)
{
	switch (event.kind)
	{
	case EventKind::silenceCounted:
		return "no heartbeat from the partner, " + event.detail;
	case EventKind::partnerLost:
		return event.duration ? "no heartbeat from the partner for this time" : "no heartbeat from the partner yet";
	case EventKind::partnerBack:
		return event.duration ? "heartbeats again, after this time" : "the first heartbeat of the partner";
	case EventKind::partnerChanged:
		return "the partner: " + roles(event);
	default:
		return joined("the partner's agent was started anew", " at ", event.detail);
	}
}

std::string addressText(const Event& event)
{
	const std::string reason = reasonOf(event.cause);
	switch (event.kind)
	{
	case EventKind::addressDropped:
		return joined(joined("the stop command was run", ": ", reason), "; it printed ", event.detail);
	case EventKind::addressStarting:
		return "the service address is not there; the start command follows in five seconds";
	case EventKind::addressWaiting:
		return "the start command was run, but the service address does not answer pings";
	case EventKind::addressFailed:
		return "the service address cannot be raised, " + event.detail;
	default:
		return joined("the service address is there", ": ", event.detail);
	}
}

std::string programsText(const Event& event)
{
	const std::string reason = reasonOf(event.cause);
	switch (event.kind)
	{
	case EventKind::programKilled:
		return joined(joined("kill command for " + event.subject, ": ", reason), "; it printed ", event.detail);
	case EventKind::programsStarted:
		return "the run script was run";
	case EventKind::programsRunning:
		return "the managed programs run";
	default:
		return joined("the managed programs do not run", ": ", reason);
	}
}

} // namespace

std::string describe(const Event& event)
{
	switch (event.kind)
	{
	case EventKind::agentStarted:
	case EventKind::agentResumed:
	case EventKind::agentEnded:
		return agentText(event);
	case EventKind::roleChanged:
		return joined(roles(event), ": ", reasonOf(event.cause));
	case EventKind::takeOverBegan:
		return "takes the service: " + reasonOf(event.cause);
	case EventKind::takeOverDone:
		return "has taken the service";
	case EventKind::takeOverUnfinished:
		return joined("began to take the service and did not end it", ": ", event.detail);
	case EventKind::askMade:
		return "asks the partner to take the service: " + reasonOf(event.cause);
	case EventKind::askAnswered:
	case EventKind::askUnanswered:
	case EventKind::askReceived:
		return askText(event.kind);
	case EventKind::faultFound:
	case EventKind::faultGone:
		return joined(faultText(event.subject, event.kind == EventKind::faultFound), ": ", event.detail);
	case EventKind::silenceCounted:
	case EventKind::partnerLost:
	case EventKind::partnerBack:
	case EventKind::partnerChanged:
	case EventKind::partnerRestarted:
		return partnerText(event);
	case EventKind::addressDropped:
	case EventKind::addressStarting:
	case EventKind::addressWaiting:
	case EventKind::addressFailed:
	case EventKind::addressUp:
		return addressText(event);
	case EventKind::programKilled:
	case EventKind::programsStarted:
	case EventKind::programsRunning:
	case EventKind::programsStopped:
		return programsText(event);
	case EventKind::logGap:
		return "nothing was logged for this time";
	case EventKind::clockSetBack:
		return "the clock was set back by this time";
	case EventKind::error:
		break;
	}
	return event.detail;
}

std::string textHeader()
{
	return "TIME                   " + std::string("EVENT") + std::string(kWordWidth - 5 + 2, ' ') + "TOOK" +
	       std::string(kSpanWidth - 4 + 2, ' ') + "WHAT";
}

namespace
{

const char* colourOf(const Event& event)
{
	switch (event.kind)
	{
	case EventKind::faultFound:
	case EventKind::agentEnded:
	case EventKind::addressFailed:
	case EventKind::takeOverUnfinished:
	case EventKind::askUnanswered:
	case EventKind::partnerLost:
	case EventKind::error:
		return "\033[31m";
	case EventKind::roleChanged:
	case EventKind::takeOverBegan:
	case EventKind::takeOverDone:
		return "\033[1m";
	case EventKind::faultGone:
	case EventKind::partnerBack:
	case EventKind::askAnswered:
		return "\033[32m";
	default:
		return "";
	}
}

std::string padded(std::string text, std::size_t width)
{
	text.resize(std::max(text.size(), width), ' ');
	return text;
}

} // namespace

namespace
{

std::string columns(Instant time, std::string_view word, const std::string& span, const std::string& text,
                    const std::string& on)
{
	const auto milliseconds = std::chrono::duration_cast<Milliseconds>(time.time_since_epoch()).count() % 1000;
	return localText(time) + "." + std::to_string(milliseconds / 100) + "  " + on +
	       padded(std::string(word), kWordWidth) + (on.empty() ? "" : "\033[0m") + "  " + padded(span, kSpanWidth) +
	       "  " + printable(text);
}

std::string describe(const KeeperEvent& event)
{
	return event.program + " " + event.word + ": " + event.detail;
}

} // namespace

std::string textLine(const Event& event, bool colour)
{
	const std::string line = columns(event.time, wordOf(event.kind), event.duration ? spanText(*event.duration) : "",
	                                 describe(event), colour ? colourOf(event) : "");
	return event.place.empty() ? line : line + "  [" + event.place + "]";
}

std::string textLine(const KeeperEvent& event, bool colour)
{
	constexpr std::array<std::string_view, 5> kBad{"failed", "killed", "conflict", "died", "check-failed"};
	const bool bad = std::ranges::find(kBad, event.word) != kBad.end();
	return columns(event.time, "keeper", "", describe(event), colour && bad ? "\033[31m" : "");
}

nlohmann::ordered_json eventJson(const KeeperEvent& event)
{
	return {{"time", isoText(event.time)},       {"event", "keeper"},  {"pid", event.process},
	        {"subject", event.program},          {"word", event.word}, {"detail", printable(event.detail)},
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
