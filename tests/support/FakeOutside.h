/// The recording stand-in for src/net/Outside.cpp: the same symbols, scripted. Every call is
/// recorded in Events, whose actions may throw out of it; nothing leaves the process.
#pragma once

#include <string>
#include <vector>

namespace fakeoutside
{

/// What `command` (exact text) prints the first time, the second time ..., the last for good.
void commandPrints(const std::string& command, std::vector<std::string> outputs);
/// From now on `command` cannot be started.
void commandFails(const std::string& command);
/// Raw value of system() for `command`.
void systemGives(const std::string& command, int result);
/// Replies of the first ping of `address` from now on, the second ..., the last for good; at
/// most the number asked for.
void pingGives(const std::string& address, std::vector<int> replies);
/// Commands whose output is still open: each waits for its end when it is closed.
int openPipes();

} // namespace fakeoutside
