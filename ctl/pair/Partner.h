/// Asking the partner by ssh.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "ctl/Context.h"
#include "ctl/pair/NodeReport.h"
#include "inspect/HostProgram.h"

namespace velarix::ctl
{

class Partner
{
public:
	/// @param target of ssh; where it is empty, VELARIX_PARTNER_SSH of the environment or of
	///        /etc/default/velarix-ha, else the partner's address in the settings
	/// @throws Failure settings when no target is to be had, usage for one that ssh would
	///         take for an option
	Partner(const std::string& target, std::chrono::milliseconds limit, const Paths& paths);

	/// Runs velarixctl there. Nothing is asked for: without a key it fails.
	host::ProgramEnd run(const std::vector<std::string>& words) const;

	/// @param why set to the reason when it does not answer, or is not the partner of `own`
	/// @return its "status --json"; null then
	Json status(const NodeState& own, std::string& why) const;

	const std::string& target() const { return m_target; }

private:
	std::string m_target;
	std::chrono::milliseconds m_limit;
};

} // namespace velarix::ctl
