// Every setting that is read and missing ends the daemon there, with nothing between the events
// before it, the line that names it and the report.

#include "Probes.h"
#include "ReceiverTest.h"
#include "Reported.h"

namespace
{

using steps::join;
using Keys = std::vector<std::string>;

class MissingSetting : public ReceiverTest
{
public:
	template <typename Worker> void construct() { WorkerTest::make<Worker>(); }
	/// A thread that does not end would never come back.
	template <typename Worker> void run()
	{
		::alarm(10);
		WorkerTest::make<Worker>()->run();
	}
	void startAddress() { Utill::startVirtualIP(&mode); }
};

struct Row
{
	Keys missing; ///< the first one is read first
	std::function<void(MissingSetting&)> call;
	events::List before;
};

const std::string kOldScript = "an older script\n";

const Keys kOfTheChecker{
    "AGENT.RELATED_PROCESS",          "ADVENCE.PROCESS_KILL_COMMAND", "PROCESS_CHECK.PROCESS_CHECK_CYCLE",
    "PROCESS_CHECK.OBSERVATION_MODE", "PROCESS_CHECK.PROCESS_NUM",    "PROCESS_CHECK.PROCESS_PATH1"};

const Row kRows[] = {
    {{"AGENT.PARTNER_IP"}, [](MissingSetting&) { partnerComunicationIPcheck(); }, {}},
    {{"AGENT.GATEWAY_IP"},
     [](MissingSetting&) { myComunicationIPcheck(); },
     {"log D Utill:774 myComunicationIPcheck : START"}},
    {{"AGENT.VIRTUAL_IP"}, [](MissingSetting&) { serviceIPcheck(); }, {"log D Utill:797 serviceIPcheck : START"}},
    {{"AGENT.VIRTUAL_IP_START_COMMAND", "AGENT.VIRTUAL_IP_STOP_COMMAND"},
     [](MissingSetting& test) { test.startAddress(); },
     {}},
    {{"AGENT.WAITING_TIME_BEFORE_PROCESS_RUN"},
     [](MissingSetting&) { Utill::voidProcessRun(false); },
     join({"log D Utill:48 try to start virtual ip", steps::findAddress()})},
    {{"AGENT.NO_SUCH_COMMAND"}, [](MissingSetting&) { Utill::shellFileRun("AGENT.NO_SUCH_COMMAND"); }, {}},
    {{"PROCESS_CHECK.OBSERVATION_MODE"}, [](MissingSetting&) { const CAgent agent(MODE_SLAVE); }, {}},
    {{"PROCESS_CHECK.PROCESS_PATH1"}, [](MissingSetting&) { const CAgent agent(MODE_SLAVE); }, {}},
    {{"ADVENCE.PROCESS_KILL_COMMAND"},
     [](MissingSetting&) { const CAgent agent(MODE_SLAVE); },
     join({"log D CAgent:25 stop virtual ip, process", steps::dropAddress()})},
    {{"AGENT.IGNORE_TIME"}, [](MissingSetting& test) { test.construct<CHeartReciver>(); }, {}},
    {{"AGENT.MAX_HEART_BEAT_RECEIING_TIME"}, [](MissingSetting& test) { test.run<CHeartReciver>(); }, {}},
    {{"AGENT.THIS_SERVER_IP"}, [](MissingSetting& test) { test.run<CHeartReciver>(); }, {}},
    {{"AGENT.HEART_BEAT_RECEIVE_PORT"}, [](MissingSetting& test) { test.run<CHeartReciver>(); }, {}},
    {{"AGENT.PARTNER_IP", "AGENT.PARTNER_HEART_BEAT_RECEIVE_PORT"},
     [](MissingSetting& test) { test.run<CHeartSender>(); },
     {"log I CHeartSender:37 Sender thread run started[noName]"}},
    {{"AGENT.HEART_BEAT_INTERVAL"},
     [](MissingSetting& test) { test.run<CHeartSender>(); },
     {"log I CHeartSender:37 Sender thread run started[noName]"}},
};

/// The line that names the key and the report.
void expectEnd(MissingSetting& test, const Row& row)
{
	static const Keys numbers{"AGENT.IGNORE_TIME",
	                          "AGENT.MAX_HEART_BEAT_RECEIING_TIME",
	                          "AGENT.HEART_BEAT_RECEIVE_PORT",
	                          "AGENT.HEART_BEAT_INTERVAL",
	                          "AGENT.WAITING_TIME_BEFORE_PROCESS_RUN",
	                          "PROCESS_CHECK.PROCESS_CHECK_CYCLE",
	                          "PROCESS_CHECK.OBSERVATION_MODE",
	                          "PROCESS_CHECK.PROCESS_NUM"};
	const bool isNumber = std::find(numbers.begin(), numbers.end(), row.missing.front()) != numbers.end();
	const std::string error = std::string("log E Configuraion:") + (isNumber ? "82" : "65") + " Not found: ";
	SCOPED_TRACE(row.missing.front());
	EXPECT_FATAL_AFTER(
	    {
		    reportEverything();
		    row.call(test);
	    },
	    reported(join({kBegin, row.before, error + row.missing.front()})), "0", "Configuraion", isNumber ? 83 : 66,
	    isNumber ? "int Configuraion::getInt(const std::string&)"
	             : "std::string Configuraion::getString(const std::string&)");
}

TEST_F(MissingSetting, EndsTheDaemonWhereItIsRead)
{
	for (const Row& row : kRows)
	{
		const Settings whole = settings;
		for (const std::string& key : row.missing)
		{
			settings.remove(key);
		}
		apply();
		sandbox::writeFile(velarix::kRunScriptPath, kOldScript);
		expectEnd(*this, row);
		EXPECT_EQ(sandbox::readFile(velarix::kRunScriptPath) == kOldScript,
		          row.missing.front() != "ADVENCE.PROCESS_KILL_COMMAND");
		settings = whole;
	}
}

TEST_F(MissingSetting, OfTheCheckerIsNoticedInTheOrderOfReading)
{
	for (std::size_t n = kOfTheChecker.size(); n >= 1; --n)
	{
		settings.remove(kOfTheChecker[n - 1]);
		apply();
		expectEnd(*this, {{kOfTheChecker[n - 1]}, [](MissingSetting& test) { test.construct<ProcessChecker>(); }, {}});
	}
}

} // namespace
