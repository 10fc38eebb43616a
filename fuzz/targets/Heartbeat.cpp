/// Bytes from the network, from the splitting to the decision.
///
/// Input: one byte of state, then messages with 0xff between them. The node's
/// actions are recorded instead of done. After every message the console lines,
/// the actions with the role at that moment, and the node's state must be those of
/// NodeModel, and the role and the ask stay within their values.
#include <cstdint>
#include <memory>

#include "CHeartReciver.h"
#include "Configuraion.h"
#include "Utill.h"
#include "VelarixLog.h"
#include "WorkerAccess.h"

#include "Daemon.h"
#include "NodeModel.h"
#include "Target.h"

namespace
{

MODE g_mode = MODE_SLAVE;
bool g_programsRun = false;
CHeartReciver* g_pReceiver = nullptr;

void record(const char* action)
{
	fuzz::console() += action;
	fuzz::console() += ", role ";
	fuzz::console() += std::to_string(g_mode);
	fuzz::console() += '\n';
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

fuzz::NodeModel modelOf(unsigned state)
{
	constexpr int roles[] = {MODE_SLAVE, MODE_MASTER, MODE_UNSET, 7};
	fuzz::NodeModel model;
	model.role = roles[state & 3U];
	model.status = (state & 4U) != 0 ? 0 : 1;
	model.asking = (state & 8U) != 0 ? 1 : 0;
	model.programsRun = (state & 16U) != 0;
	model.configuredMaster = (state & 32U) != 0;
	model.count = static_cast<int>(state >> 6U);
	return model;
}

void putInto(const fuzz::NodeModel& model)
{
	g_mode = model.role;
	g_specialAsking = model.asking;
	g_programsRun = model.programsRun;
	WorkerAccess::myStatus(*g_pReceiver) = model.status;
	WorkerAccess::specialAskCount(*g_pReceiver) = model.count;
	configureRole(model.configuredMaster);
}

void compare(const fuzz::NodeModel& model, MODE before)
{
	fuzz::expectEqual("what the node does on a message", fuzz::console(), model.story);
	fuzz::expectEqual("role", g_mode, model.role);
	fuzz::expectEqual("status", WorkerAccess::myStatus(*g_pReceiver), model.status);
	fuzz::expectEqual("ask", g_specialAsking, model.asking);
	fuzz::expectEqual("ask counter", WorkerAccess::specialAskCount(*g_pReceiver), model.count);
	const bool known = before == MODE_MASTER || before == MODE_SLAVE;
	fuzz::expect("a role that is none stays as it is, the others are master or slave",
	             known ? g_mode == MODE_MASTER || g_mode == MODE_SLAVE : g_mode == before);
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
	record(skipVirtualIP ? "run programs without the address" : "run programs");
}

bool Utill::startVirtualIP(MODE* pMode)
{
	record(pMode == &g_mode ? "start address" : "start address for another role");
	return true;
}

bool Utill::stopVirtualIP()
{
	record("stop address");
	return true;
}

void fuzz::prepare()
{
	fuzz::captureConsole();
	fuzz::useSettings("[AGENT]\nMODE = 2\nIGNORE_TIME = 5\n");
	velarixLog = new VelarixLog;
	static bool running = false;
	static std::vector<Poco::ProcessHandle*>* handles = nullptr;
	static std::string location = "noName";
	g_pReceiver = new CHeartReciver(&handles, &running, &g_mode, location);
}

void fuzz::run(Input& input)
{
	fuzz::NodeModel model = modelOf(input.byte());
	putInto(model);
	while (!input.empty())
	{
		const std::string message = input.field();
		const MODE before = g_mode;
		fuzz::console().clear();
		model.story.clear();
		g_pReceiver->ParsingReceivedMessage(message);
		model.hear(message);
		compare(model, before);
	}
}
