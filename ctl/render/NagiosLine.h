/// A node's state as the one line of a monitoring plug-in.
#pragma once

#include <string>

#include "ctl/status/Judgement.h"
#include "ctl/status/NodeState.h"

namespace velarix::ctl
{

enum class NagiosStatus : int
{
	ok = 0,
	warning = 1,
	critical = 2,
	unknown = 3
};

/// Ages of the partner's last heartbeat from which the line warns and alarms.
struct NagiosLimits
{
	double warning = 15;
	double critical = 60;
};

struct NagiosLine
{
	NagiosStatus status = NagiosStatus::unknown;
	/// "VELARIX OK - ...|heartbeat_age=0.4s;15;60;0 ...", without a line feed.
	std::string text;
};

NagiosLine nagiosLine(const NodeState& state, const Judgement& judgement, const NagiosLimits& limits);

} // namespace velarix::ctl
