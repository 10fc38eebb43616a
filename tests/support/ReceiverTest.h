/// One node as its receiver sees it, for tests that feed the receiver by hand,
/// and the literal event lists that its decisions end in. Needs FakeOutside.
#pragma once

#include <cstdint>
#include <initializer_list>

#include "WorkerTest.h"

/// Fixture with one receiver, slave and with the status OK, nothing asked. The
/// one managed program, dbServer, is looked for in a hand-made /proc, where
/// another process lives; the virtual IP is listed on the node.
class ReceiverTest : public WorkerTest
{
protected:
	ReceiverTest();
	void SetUp() override;
	void TearDown() override;

	/// Puts dbServer into /proc or another program in its place.
	static void programRuns(bool runs);
	/// Sets "AGENT.MODE".
	void configureRole(const std::string& role);

	/// Hands over a heartbeat with the partner's role and ask fields as given.
	void hear(const std::string& partnerRole, const std::string& ask);
	/// Runs `call` and looks at role, status, ask and count at each log line, action and
	/// wait, and in the end. What changes and changes back between two of these is not
	/// seen. Takes the places of the handlers of actions, waits and onLogLine.
	/// @return every change as "role R status S ask A count C at EVENT", EVENT being the
	///         first one that saw it, "the end" after the last
	std::vector<std::string> stateChanges(const std::function<void()>& call);

	std::int32_t& status() { return WorkerAccess::myStatus(*receiver); }
	std::int32_t& count() { return WorkerAccess::specialAskCount(*receiver); }

	std::unique_ptr<CHeartReciver> receiver;
};

namespace steps
{

/// One event or a list of them.
struct Step
{
	Step(const char* event) : events{event} {}
	Step(std::string event) : events{std::move(event)} {}
	Step(events::List list) : events(std::move(list)) {}

	events::List events;
};

/// @return the steps' events, one after the other
events::List join(std::initializer_list<Step> steps);

/// The same, after the line about the accepted prefix.
events::List heard(std::initializer_list<Step> steps);

/// The kill command for dbServer.
events::List killPrograms();
/// The stop command of the virtual IP.
events::List dropAddress();
/// The virtual IP asked to be up, which is listed already.
events::List findAddress();
/// The virtual IP asked to be up, which is not listed: the countdown, the start
/// command and the first answered ping.
events::List raiseAddress();
/// The managed programs started, the virtual IP being listed already.
events::List runPrograms();

} // namespace steps
