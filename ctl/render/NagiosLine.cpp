#include "ctl/render/StateViews.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>
#include <utility>
#include <vector>

#include "inspect/Printable.h"
#include "inspect/SettingsKeys.h"
#include "inspect/TimeText.h"

namespace velarix::ctl
{

namespace
{

std::string shortestText(double value)
{
	std::array<char, 32> digits{};
	return {digits.data(), std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr};
}

/// A bar begins the performance data and a line feed ends the line.
std::string harmless(std::string text)
{
	std::ranges::replace(text, '|', '/');
	std::ranges::replace(text, '\n', ' ');
	return printable(text);
}

using Remark = std::pair<NagiosStatus, std::string>;

/// The age of the last heartbeat is judged by the limits alone.
std::vector<Remark> remarks(const NodeState& state, const Judgement& judgement, const NagiosLimits& limits)
{
	std::vector<Remark> all;
	for (const Problem& problem : judgement.problems)
	{
		if (problem.id != kPartnerSilent || !state.heartbeat.known())
		{
			all.emplace_back(static_cast<NagiosStatus>(problem.grade), problem.text);
		}
	}
	const std::optional<Milliseconds> age = state.age(state.heartbeat);
	if (state.heartbeat.known() && inSeconds(*age) >= limits.warning)
	{
		const bool serves =
		    std::ranges::find(judgement.problems, kAddressWithPartner, &Problem::id) != judgement.problems.end();
		const bool alarm = inSeconds(*age) >= limits.critical && !serves;
		all.emplace_back(alarm ? NagiosStatus::critical : NagiosStatus::warning,
		                 "the partner's last heartbeat is " + spanText(*age) + " old");
	}
	std::ranges::stable_sort(all, {}, [](const Remark& one) { return -rankOf(one.first); });
	return all;
}

std::string fineText(const NodeState& state, const Judgement& judgement)
{
	// A partner that has missed heartbeats within the limits is not yet a problem, and
	// whether it could take the service is not said.
	const std::string partner = state.partnerRole.known()
	                                ? std::string(textOf(*state.partnerRole.reported))
	                                : "last heard " + spanText(*state.age(state.heartbeat)) + " ago";
	return std::string(textOf(*state.role.reported)) + ", partner " + state.setting(key::kPartnerIP) + " " + partner +
	       (judgement.failOverWorks == true ? ", a failover would work" : "");
}

std::string performance(const NodeState& state, const NagiosLimits& limits)
{
	std::string text;
	const auto add = [&](const std::string& figure) { text += (text.empty() ? "|" : " ") + figure; };
	if (state.heartbeat.known())
	{
		add("heartbeat_age=" + shortestText(inSeconds(*state.age(state.heartbeat))) + "s;" +
		    shortestText(limits.warning) + ";" + shortestText(limits.critical) + ";0");
	}
	if (const std::optional<Milliseconds> age = state.age(state.snapshot().lastMessage))
	{
		add("log_age=" + shortestText(inSeconds(*age)) + "s;" + shortestText(inSeconds(state.timing.logPause())) +
		    ";;0");
	}
	if (state.agent.lives())
	{
		add("threads=" + std::to_string(state.agent.threads) + ";;" + std::to_string(kAgentThreads) + ":;0");
	}
	if (state.programs.known())
	{
		add("processes=" + std::to_string(state.programs.reported->processes()) + ";;;0");
	}
	if (state.address.known())
	{
		add("address=" + std::string(state.address.reported->held ? "1" : "0") + ";;;0;1");
	}
	return text;
}

} // namespace

const char* wordOf(NagiosStatus status)
{
	constexpr std::array<const char*, 4> words{"OK", "WARNING", "CRITICAL", "UNKNOWN"};
	return words.at(static_cast<std::size_t>(status));
}

int rankOf(NagiosStatus status)
{
	constexpr std::array<int, 4> ranks{0, 1, 3, 2};
	return ranks.at(static_cast<std::size_t>(status));
}

NagiosLine nagiosLine(const NodeState& state, const Judgement& judgement, const NagiosLimits& limits)
{
	const std::vector<Remark> all = remarks(state, judgement, limits);
	NagiosLine line;
	line.status = all.empty() ? NagiosStatus::ok : all.front().first;
	line.text = std::string("VELARIX ") + wordOf(line.status) + " - ";
	if (all.empty())
	{
		line.text += harmless(fineText(state, judgement));
	}
	for (const Remark& remark : all)
	{
		line.text += (&remark == all.data() ? "" : "; ") + harmless(remark.second);
	}
	line.text += performance(state, limits);
	return line;
}

} // namespace velarix::ctl
