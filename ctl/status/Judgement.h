/// What is wrong with the node, and whether a failover would work now.
///
/// One list answers all: `status` prints it, `nagios` takes the worst of it, and
/// a failover works when nothing on it stands in its way. On a master the
/// question is whether its partner could take the service, on a standby whether
/// this node could.
#pragma once

#include "ctl/status/NodeState.h"

namespace velarix::ctl
{

/// Each has the number of its exit status of a monitoring plug-in.
enum class Grade : int
{
	ok = 0,
	/// The service is there, but something is not as it should be.
	warning = 1,
	/// The service is away, at risk now or not watched over.
	critical = 2,
	/// It is not known how things are.
	unknown = 3
};

/// @return "ok", "warning", ...
inline std::string_view wordOf(Grade grade)
{
	constexpr std::array<std::string_view, 4> words{"ok", "warning", "critical", "unknown"};
	return words.at(static_cast<std::size_t>(grade));
}
/// How bad: unknown is worse than a warning and hidden by an alarm.
inline int rankOf(Grade grade)
{
	return grade == Grade::critical ? 4 : static_cast<int>(grade);
}

/// The problem that `nagios` judges by limits of its own.
inline constexpr std::string_view kPartnerSilent = "partner-silent";
/// With it the partner serves, and its silence is no reason to wake anybody up.
inline constexpr std::string_view kAddressWithPartner = "address-with-partner";

struct Problem
{
	/// For programs; does not change.
	std::string_view id;
	Grade grade;
	/// A failover would not work with it.
	bool blocks;
	std::string text;
};

struct Judgement
{
	std::vector<Problem> problems;
	/// Empty: it is not known.
	std::optional<bool> failOverWorks;

	/// @return the texts of what stands in a failover's way, or of what is not known
	std::vector<std::string> reasons() const;
};

Judgement judge(const NodeState& state);

} // namespace velarix::ctl
