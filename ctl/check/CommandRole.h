/// What several checks have in common: the three commands, the virtual IP.
#pragma once

#include <string>

#include "ctl/check/Findings.h"

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

/// Reports that the virtual IP's text is found within another one, where the agent looks.
void addressInside(Findings& findings, const std::string& address, const std::string& other);

/// @return whether the text is one IPv4 address; what is wrong with another one is
///         reported once, by the check of the addresses
bool isVirtualAddress(const std::string& text);

} // namespace velarix::ctl::checks
