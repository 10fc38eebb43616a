/// The recording stand-in for src/net/Outside.cpp: the same symbols, scripted.
/// Every call is recorded in Events; nothing leaves the process.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace fakeoutside
{

/// What `command` (exact text) prints from now on.
void commandPrints(const std::string& command, const std::string& output);
/// What `command` prints the first time, the second time ..., the last for good.
void commandPrintsInTurn(const std::string& command, std::vector<std::string> outputs);
/// From now on `command` cannot be started.
void commandFails(const std::string& command);
/// Raw value of system() for `command`.
void systemGives(const std::string& command, int result);
/// Replies of each ping of `address` from now on, at most the number asked for.
void pingGives(const std::string& address, int replies);
/// Replies of the first ping, the second ..., the last for good.
void pingGivesInTurn(const std::string& address, std::vector<int> replies);
/// From now on a ping of `address` calls `thrower`, which throws.
void pingThrows(const std::string& address, std::function<void()> thrower);
/// From now on a launch of `path` calls `thrower`, which throws.
void launchThrows(const std::string& path, std::function<void()> thrower);
/// Called after every recorded action with the event's text; it may change the
/// world (a carrier, a role) or throw events::EndOfScript.
void onAction(std::function<void(const std::string&)> handler);
/// Commands whose output is still open: each waits for its end when it is closed.
int openPipes();

} // namespace fakeoutside
