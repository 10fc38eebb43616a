/// The single questions behind a Judgement, by what they are about.
#pragma once

#include "ctl/status/Judgement.h"

namespace velarix::ctl
{

class Checklist
{
public:
	explicit Checklist(const NodeState& state) : m_state(state) {}

	/// The agent's process.
	void agent();
	/// @return whether somebody works on the node, who knows that the agent does nothing
	bool maintenance();
	/// Settings and log: whether anything is known.
	void sources();
	/// The log's own soundness, and what it reported whether it is fresh or not.
	void log();
	void flapping();
	void start();

	/// What the keeper sees, which holds the address and runs the services.
	void keeper();

	/// The way of the heartbeats, where it is a tunnel.
	void tunnel();

	/// The others need a known role.
	void workers();
	void interfaces();
	void partner();
	void master();
	void standby();

	std::vector<Problem> problems() && { return std::move(m_problems); }

private:
	/// Whether a failover to or from this node would not work.
	static constexpr bool kBlocks = true;
	static constexpr bool kHarmless = false;

	const NodeState& m_state;
	std::vector<Problem> m_problems;

	void add(std::string_view id, Grade grade, bool blocks, std::string text);
	void addWhen(bool is, std::string_view id, Grade grade, bool blocks, std::string text);
	/// Adds the first one that there is.
	void addFirst(std::initializer_list<std::pair<bool, Problem>> problems);
	void unheardPartner();
	/// @return the hardware address of the host that has the virtual address instead of this
	///         node; empty for none
	std::string otherHolder() const;
	void addressElsewhere(const std::string& holder);
	void reachability(const KeeperReach& reach);
};

} // namespace velarix::ctl
