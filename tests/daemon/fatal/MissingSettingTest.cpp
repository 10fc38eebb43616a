// Every setting that is read and missing ends the daemon there, with nothing between the events
// before it, the line that names it and the report.

#include "Probes.h"
#include "Workers.h"

namespace
{

using Keys = std::vector<std::string>;

class MissingSetting : public ReceiverTest
{
public:
	template <typename Worker> void construct() { WorkerTest::make<Worker>(); }
	template <typename Worker> void run() { WorkerTest::make<Worker>()->run(); }
	void startAddress() { Utill::startVirtualIP(&mode); }
	static void constructAgent() { const CAgent agent(MODE_SLAVE); }

protected:
	using Call = void (*)(MissingSetting&);

	/// The call ends with the error line and the report of a missing number or text.
	void expectEnd(const std::string& key, Call call, const events::List& before)
	{
		static const Keys numbers{"AGENT.IGNORE_TIME",
		                          "AGENT.MAX_HEART_BEAT_RECEIING_TIME",
		                          "AGENT.HEART_BEAT_RECEIVE_PORT",
		                          "AGENT.HEART_BEAT_INTERVAL",
		                          "AGENT.WAITING_TIME_BEFORE_PROCESS_RUN",
		                          "PROCESS_CHECK.PROCESS_CHECK_CYCLE",
		                          "PROCESS_CHECK.OBSERVATION_MODE",
		                          "PROCESS_CHECK.PROCESS_NUM"};
		SCOPED_TRACE(key);
		const bool isNumber = std::find(numbers.begin(), numbers.end(), key) != numbers.end();
		const std::string error = std::string("log E Configuraion:") + (isNumber ? "82" : "65") + " Not found: " + key;
		EXPECT_END(call(*this), events::join({before, {error}}), isNumber ? kNoNumber : kNoText);
	}
};

struct Row
{
	Keys missing; ///< the first one is read first
	void (*call)(MissingSetting&);
	events::List before;
};

const std::string kOldScript = "an older script\n";

const Keys kOfTheChecker{
    "AGENT.RELATED_PROCESS",          "ADVENCE.PROCESS_KILL_COMMAND", "PROCESS_CHECK.PROCESS_CHECK_CYCLE",
    "PROCESS_CHECK.OBSERVATION_MODE", "PROCESS_CHECK.PROCESS_NUM",    "PROCESS_CHECK.PROCESS_PATH1"};

const events::List kSenderStarted{"log I CHeartSender:37 Sender thread run started[noName]"};

// clang-format off
const Row kRows[] = {
    {{"AGENT.PARTNER_IP"},  [](MissingSetting&) { partnerComunicationIPcheck(); }, {}},
    {{"AGENT.GATEWAY_IP"},  [](MissingSetting&) { myComunicationIPcheck(); },      {"log D Utill:774 myComunicationIPcheck : START"}},
    {{"AGENT.VIRTUAL_IP"},  [](MissingSetting&) { serviceIPcheck(); },             {"log D Utill:797 serviceIPcheck : START"}},
    {{"AGENT.VIRTUAL_IP_START_COMMAND", "AGENT.VIRTUAL_IP_STOP_COMMAND"},
                            [](MissingSetting& test) { test.startAddress(); },     {}},
    {{"AGENT.WAITING_TIME_BEFORE_PROCESS_RUN"},
                            [](MissingSetting&) { Utill::voidProcessRun(false); }, events::join({steps::kTryPrograms, steps::kFindAddress})},
    {{"AGENT.NO_SUCH_COMMAND"},
                            [](MissingSetting&) { Utill::shellFileRun("AGENT.NO_SUCH_COMMAND"); }, {}},
    {{"PROCESS_CHECK.OBSERVATION_MODE"}, [](MissingSetting& test) { test.constructAgent(); }, {}},
    {{"PROCESS_CHECK.PROCESS_PATH1"},    [](MissingSetting& test) { test.constructAgent(); }, {}},
    {{"ADVENCE.PROCESS_KILL_COMMAND"},   [](MissingSetting& test) { test.constructAgent(); },
                            events::join({{"log D CAgent:25 stop virtual ip, process"}, steps::kDropAddress})},
    {{"AGENT.IGNORE_TIME"},                  [](MissingSetting& test) { test.construct<CHeartReciver>(); }, {}},
    {{"AGENT.MAX_HEART_BEAT_RECEIING_TIME"}, [](MissingSetting& test) { test.run<CHeartReciver>(); }, {}},
    {{"AGENT.THIS_SERVER_IP"},               [](MissingSetting& test) { test.run<CHeartReciver>(); }, {}},
    {{"AGENT.HEART_BEAT_RECEIVE_PORT"},      [](MissingSetting& test) { test.run<CHeartReciver>(); }, {}},
    {{"AGENT.PARTNER_IP", "AGENT.PARTNER_HEART_BEAT_RECEIVE_PORT"},
                                             [](MissingSetting& test) { test.run<CHeartSender>(); }, kSenderStarted},
    {{"AGENT.HEART_BEAT_INTERVAL"},          [](MissingSetting& test) { test.run<CHeartSender>(); }, kSenderStarted},
};
// clang-format on

TEST_F(MissingSetting, EndsTheDaemonWhereItIsRead)
{
	for (const Row& row : kRows)
	{
		const Settings whole = settings;
		for (const std::string& key : row.missing)
		{
			settings.remove(key);
		}
		sandbox::writeFile(velarix::kRunScriptPath, kOldScript);
		expectEnd(row.missing.front(), row.call, row.before);
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
		expectEnd(kOfTheChecker[n - 1], [](MissingSetting& test) { test.construct<ProcessChecker>(); }, {});
	}
}

} // namespace
