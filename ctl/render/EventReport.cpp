#include "ctl/render/EventReport.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "ctl/history/OperatorLog.h"
#include "inspect/Printable.h"
#include "inspect/TimeText.h"

namespace velarix::ctl
{

namespace
{

constexpr std::size_t kWordWidth = sizeof("takeover-unfinished") - 1;
constexpr std::size_t kSpanWidth = sizeof("12 min 59 s") - 1;

/// The colour of what has this severity.
std::string colourOf(std::string_view severity)
{
	return severity == "problem"    ? "\033[31m"
	       : severity == "recovery" ? "\033[32m"
	       : severity == "change"   ? "\033[1m"
	                                : "";
}

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

std::string textHeader()
{
	return "TIME                   " + std::string("EVENT") + std::string(kWordWidth - 5 + 2, ' ') + "TOOK" +
	       std::string(kSpanWidth - 4 + 2, ' ') + "WHAT";
}

std::string textLine(const Event& event, bool colour)
{
	const std::string line = columns(event.time, wordOf(event.kind), event.duration ? spanText(*event.duration) : "",
	                                 describe(event), colour ? colourOf(severityOf(event)) : "");
	return event.place.empty() ? line : line + "  [" + event.place + "]";
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
	const std::string_view severity = severityOf(event);
	return columns(event.time, sourceOf(event), "", describe(event),
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
