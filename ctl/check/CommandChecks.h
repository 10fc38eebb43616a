/// What the checks of the three commands have in common.
#pragma once

#include <string>

#include "ctl/check/AddressCommand.h"
#include "ctl/check/Findings.h"
#include "ctl/check/ShellCommand.h"

namespace velarix::ctl::checks
{

/// A configured command: which it is and what its faults lead to.
struct CommandRole
{
	const char* key;
	/// When it does not do its work.
	const char* useless;
	/// When it does not end.
	const char* blocked;
};

extern const CommandRole kStartRole;
extern const CommandRole kStopRole;
extern const CommandRole kKillRole;

/// A command of the settings, taken apart.
class CommandText
{
public:
	CommandText(Findings& findings, const CommandRole& role);

	/// @return false when there is no command to look into, which has been told
	bool usable() const { return m_usable; }

	const shell::Script& script() const { return m_script; }
	/// The addresses that it raises (true) or drops (false).
	std::vector<shell::AddressAction> actions(bool raising) const;
	/// It runs a program of the node's own, of which nothing is known.
	bool runsOwnProgram() const;
	/// A word occurs in it.
	bool mentions(const std::string& text) const;
	/// It runs the program.
	bool runs(const std::string& program) const;
	/// Nothing in it tells that it deals with the virtual IP.
	bool hasNothingToDoWithAddress() const;

	/// Tells what holds for each of the three: it ends, it leaves nothing behind
	/// that holds its output, every shell understands it.
	void general() const;

private:
	void foreground() const;
	void leftBehind() const;

	Findings& m_findings;
	const CommandRole& m_role;
	std::string m_text;
	shell::Script m_script;
	bool m_usable = false;
};

/// Tells when a command drops something else than the start command raises.
void droppedAddress(Findings& findings, const CommandRole& role, const CommandText& text);

} // namespace velarix::ctl::checks
