/// The single questions behind a Judgement, by what they are about.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "ctl/status/Judgement.h"

namespace velarix::ctl
{

class Checklist
{
public:
	explicit Checklist(const NodeState& state) : m_state(state) {}

	/// The agent's process.
	void agent();
	/// Settings and log: whether anything can be told.
	void sources();

	/// The others need a known role.
	void workers();
	void cards();
	void partner();
	void master();
	void slave();

	std::vector<Problem> problems() && { return std::move(m_problems); }

private:
	const NodeState& m_state;
	std::vector<Problem> m_problems;

	void add(std::string_view id, Grade grade, bool blocks, std::string text);
	void silentPartner();
	void programs();
};

} // namespace velarix::ctl
