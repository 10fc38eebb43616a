/// A planned move of the service to the partner, by the agents' own switchover.
///
/// The programs are ended, nothing else: the agent notices, gives up, drops the
/// address and asks its partner, which takes over. The configured kill command
/// ends them, but without a network: it may drop the address too (the usual one
/// does), and an agent that misses its address before its programs gives up
/// without asking. The node then takes the service back when it is the configured
/// master, so nothing has moved.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "ctl/status/Judgement.h"
#include "ctl/status/NodeState.h"
#include "inspect/HostProcesses.h"
#include "inspect/Paths.h"

namespace velarix::ctl
{

using namespace inspect;

/// What it would do, and why it may not be done.
struct HandOverPlan
{
	/// Why not; empty when it may be done.
	std::vector<std::string> refusals;
	/// The kill command for each program, as the agent would run it.
	std::vector<std::string> commands;
	/// The programs' file names, and how many processes the agent must not find
	/// any more to notice that they are gone.
	std::vector<std::string> names;
	/// The processes that are the programs.
	std::vector<host::Process> targets;
};

HandOverPlan planHandOver(const NodeState& state, const Judgement& judgement, const Paths& paths);

/// @return the processes that bear exactly one of the names and have not ended
std::vector<host::Process> processesNamed(const std::vector<std::string>& names);

class HandOver
{
public:
	/// Gets each step as it is seen, with the time since the begin.
	using Tell = std::function<void(std::chrono::milliseconds, const std::string&)>;
	using Look = std::function<NodeState()>;

	enum class End
	{
		moved,
		/// This node has the service again.
		cameBack,
		timeOut
	};

	HandOver(HandOverPlan plan, Look look, Tell tell);

	/// Ends the programs and follows what happens; everything is verified from
	/// this node.
	End run(std::chrono::milliseconds timeOut);

	/// From the begin to the end of run.
	std::chrono::milliseconds duration() const;
	/// How long the service address did not answer this node.
	std::chrono::milliseconds silence() const { return m_silence; }
	/// What was not yet as it should be at the last look.
	std::string missing() const;

private:
	struct Step
	{
		std::string what;
		std::function<bool(const NodeState&)> seen;
		bool reported = false;
		bool holds = false;
	};

	HandOverPlan m_plan;
	Look m_look;
	Tell m_tell;
	std::vector<Step> m_steps;
	std::chrono::milliseconds m_begin;
	/// When the programs are helped to their end next, and how.
	std::chrono::milliseconds m_nextSignal{};
	int m_signal;
	std::optional<bool> m_answers;
	std::chrono::milliseconds m_silence{};
	std::chrono::milliseconds m_lastPing{};
	bool m_gaveUp = false;

	void tell(const std::string& text) const;
	void runCommands(std::chrono::milliseconds timeOut);
	void helpToEnd();
	void ping(const NodeState& state);
	bool allHold(const NodeState& state);
	bool cameBack(const NodeState& state);
};

} // namespace velarix::ctl
