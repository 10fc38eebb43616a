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

using namespace inspect;

namespace
{

constexpr std::array<const char*, 4> kWords{"OK", "WARNING", "CRITICAL", "UNKNOWN"};

/// How bad: unknown is worse than a warning and hidden by an alarm.
constexpr int rank(NagiosStatus status)
{
	constexpr std::array<int, 4> kRanks{0, 1, 3, 2};
	return kRanks[static_cast<std::size_t>(status)];
}

NagiosStatus statusOf(Grade grade)
{
	switch (grade)
	{
	case Grade::warning:
		return NagiosStatus::warning;
	case Grade::critical:
		return NagiosStatus::critical;
	case Grade::unknown:
		break;
	}
	return NagiosStatus::unknown;
}

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
			all.emplace_back(statusOf(problem.grade), problem.text);
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
	std::ranges::stable_sort(all, [](const Remark& left, const Remark& right)
	                         { return rank(left.first) > rank(right.first); });
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
		int processes = 0;
		for (const ProgramCount& program : state.programs.reported->each)
		{
			processes += program.processes;
		}
		add("processes=" + std::to_string(processes) + ";;;0");
	}
	if (state.address.known())
	{
		add("address=" + std::string(state.address.reported->held ? "1" : "0") + ";;;0;1");
	}
	return text;
}

} // namespace

NagiosLine nagiosLine(const NodeState& state, const Judgement& judgement, const NagiosLimits& limits)
{
	const std::vector<Remark> all = remarks(state, judgement, limits);
	NagiosLine line;
	line.status = all.empty() ? NagiosStatus::ok : all.front().first;
	line.text = std::string("VELARIX ") + kWords[static_cast<std::size_t>(line.status)] + " - ";
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
