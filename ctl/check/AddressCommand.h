/// What a command does to addresses, as far as its text tells.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "ctl/check/ShellCommand.h"

namespace velarix::ctl::shell
{

/// One "ip addr add|del" or "ifconfig CARD ADDRESS|down".
struct AddressAction
{
	bool adds = false;
	/// Dotted, without prefix; empty when it is not said ("ifconfig eth0:ha down").
	std::string address;
	/// Length of the network part; nothing when the text does not tell.
	std::optional<int> prefix;
	/// Without label; empty when it is not said.
	std::string card;
	/// "eth0:ha"; empty without one.
	std::string label;
};

/// @return what a simple command does; nothing when it does nothing to addresses
std::optional<AddressAction> addressAction(const Command& command);

/// @return all of them, in the order of the text
std::vector<AddressAction> addressActions(const Script& script);

/// @return whether a part of an action is not said, or said by a shell variable
bool isVariable(const std::string& text);

} // namespace velarix::ctl::shell
