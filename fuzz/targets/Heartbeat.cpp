/// Bytes from the network, from the splitting to the decision.
///
/// Input: one byte of state, then messages with 0xff between them. The node's actions are
/// counted instead of done. After every message role and ask are within their values, a
/// message that is no heartbeat has changed nothing, and each action belongs to the role at
/// that moment. What each heartbeat leads to is in tests/daemon/tables.
#include <array>

#include "CHeartReciver.h"
#include "Configuraion.h"
#include "Utill.h"
#include "VelarixLog.h"
#include "WorkerAccess.h"

#include "inspect/LogLine.h"

#include "Target.h"

namespace
{

MODE g_mode = MODE_SLAVE;
bool g_programsRun = false;
CHeartReciver* g_pReceiver = nullptr;

std::size_t g_actions = 0;

/// @param allowed  the role in which the node may do it
void record(const char* action, bool allowed = true)
{
	++g_actions;
	fuzz::expect(action, allowed);
}

void configureRole(bool master)
{
	static int configured = 0;
	if (const int wanted = master ? 1 : 2; wanted != configured)
	{
		Configuraion::pConf->setInt("AGENT.MODE", wanted);
		configured = wanted;
	}
}

void setState(unsigned state)
{
	constexpr int roles[] = {MODE_SLAVE, MODE_MASTER, MODE_UNSET, 7};
	g_mode = roles[state & 3U];
	WorkerAccess::myStatus(*g_pReceiver) = (state & 4U) != 0 ? 0 : 1;
	g_specialAsking = (state & 8U) != 0 ? 1 : 0;
	g_programsRun = (state & 16U) != 0;
	configureRole((state & 32U) != 0);
	WorkerAccess::specialAskCount(*g_pReceiver) = static_cast<int>(state >> 6U);
}

std::array<int, 4> stateNow()
{
	return {g_mode, WorkerAccess::myStatus(*g_pReceiver), g_specialAsking, WorkerAccess::specialAskCount(*g_pReceiver)};
}

void check(const std::string& message, const std::array<int, 4>& before)
{
	const bool known = before[0] == MODE_MASTER || before[0] == MODE_SLAVE;
	const bool ignored = !known || !velarix::inspect::parseHeartbeat(message);
	fuzz::expect("what is no heartbeat, or reaches a node without a role, changes nothing",
	             !ignored || (stateNow() == before && g_actions == 0), message);
	fuzz::expect("a node with a role stays master or slave", !known || g_mode == MODE_MASTER || g_mode == MODE_SLAVE);
	fuzz::expect("the ask is made or not", g_specialAsking == 0 || g_specialAsking == 1);
	fuzz::expect("the ask counter stays below four", WorkerAccess::specialAskCount(*g_pReceiver) < 4);
}

} // namespace

bool Utill::isProcessRunning(OBSERVATION_MODE /*mode*/)
{
	record("look for programs");
	return g_programsRun;
}

OBSERVATION_MODE Utill::getObservationMode()
{
	return OBSERVATION_MODE_1;
}

bool Utill::processKill()
{
	record("kill programs");
	return true;
}

void Utill::voidProcessRun(bool skipVirtualIP)
{
	record("the programs run with the address, on a master", !skipVirtualIP && g_mode == MODE_MASTER);
}

bool Utill::startVirtualIP(MODE* pMode)
{
	record("a master raises the address", pMode == &g_mode && g_mode == MODE_MASTER);
	return true;
}

bool Utill::stopVirtualIP()
{
	record("a slave drops the address", g_mode == MODE_SLAVE);
	return true;
}

void fuzz::prepare()
{
	fuzz::captureConsole();
	Configuraion::pConf = new Configuraion(MemoryFile("[AGENT]\nMODE = 2\nIGNORE_TIME = 5\n").path());
	velarixLog = new VelarixLog;
	static bool running = false;
	static std::vector<Poco::ProcessHandle*>* handles = nullptr;
	static std::string location = "noName";
	g_pReceiver = new CHeartReciver(&handles, &running, &g_mode, location);
}

void fuzz::run(Input& input)
{
	setState(input.byte());
	while (!input.empty())
	{
		const std::string message = input.field();
		const std::array<int, 4> before = stateNow();
		g_actions = 0;
		fuzz::console().str("");
		g_pReceiver->ParsingReceivedMessage(message);
		check(message, before);
	}
}
