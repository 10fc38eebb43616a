// Which key of the run-info record each of its users takes for a label. The three
// rules differ on purpose: "master1" and "master2" are known to the reader alone,
// "slaveAlone" to the sender's writer alone, and "master2" is the slave's key.
#include "Workers.h"

namespace
{

/// A key of the record and its value in the default record.
struct Key
{
	std::string name;
	std::string value;
};

const Key kLast{"LAST_RUN_TIME", "20240131235959"};
const Key kMaster{"MASTER_LAST_RUN_TIME", "20240101000000"};
const Key kSlave{"SLAVE_LAST_RUN_TIME", "20240102000000"};

struct Row
{
	const char* name;
	const char* label;
	const Key& agentWrites;
	const Key& reciverWrites;
	const Key& senderWrites;
	const Key& senderReads;
};

class RunInfoKeys : public WorkerTest, public testing::WithParamInterface<Row>
{
protected:
	/// Expects exactly the write of `key` and the one log line that begins with `lead`.
	static void expectWritten(const Key& key, const std::string& lead, const std::function<void()>& write)
	{
		sandbox::writeFile(velarix::kRunInfoPath, kRunInfo);
		events::clear();
		write();
		std::string record = kRunInfo;
		record.replace(record.find(key.value), key.value.size(), "20231114221320");
		EXPECT_EQ(sandbox::readFile(velarix::kRunInfoPath), record);
		EXPECT_THAT(events::all(),
		            ElementsAre(lead + "TRACE." + key.name + "(20231114221320)[" + GetParam().label + "]"));
	}
};

TEST_P(RunInfoKeys, OfEachWriterAndOfTheReader)
{
	const Row& row = GetParam();
	events::stopClock(1700000000);
	CAgent agent(MODE_SLAVE);
	AgentAccess::processLocation(agent) = row.label;
	events::clear();
	EXPECT_EQ(make<CHeartSender>(row.label)->getProcessStartedTime(), row.senderReads.value);
	EXPECT_EQ(sandbox::readFile(velarix::kRunInfoPath), kRunInfo);
	EXPECT_THAT(events::all(), IsEmpty());
	expectWritten(row.agentWrites, "log D CAgent:179 run time wrote:", [&] { agent.saveStartedTime(); });
	expectWritten(row.reciverWrites, "log D CHeartReciver:627 run info file changed:",
	              [&] { make<CHeartReciver>(row.label)->saveStartedTime(); });
	expectWritten(row.senderWrites, "log D CHeartSender:249 run info file changed:",
	              [&] { make<CHeartSender>(row.label)->saveStartedTime(); });
}

// clang-format off
const Row kRows[] = {
    // name                  label          agent w. receiver w. sender w. sender reads
    {"NoName",               "noName",      kLast,   kLast,      kLast,    kLast},
    {"Empty",                "",            kLast,   kLast,      kLast,    kLast},
    {"Master",               "master",      kLast,   kMaster,    kMaster,  kMaster},
    {"MasterOne",            "master1",     kLast,   kLast,      kLast,    kMaster},
    {"MasterTwo",            "master2",     kLast,   kLast,      kLast,    kSlave},
    {"MasterThree",          "master3",     kLast,   kLast,      kLast,    kLast},
    {"MasterAlone",          "masterAlone", kLast,   kLast,      kLast,    kLast},
    {"MasterUpperCase",      "MASTER",      kLast,   kLast,      kLast,    kLast},
    {"MasterCapital",        "Master",      kLast,   kLast,      kLast,    kLast},
    {"MasterAndBlank",       "master ",     kLast,   kLast,      kLast,    kLast},
    {"MasterBeginning",      "maste",       kLast,   kLast,      kLast,    kLast},
    {"Slave",                "slave",       kLast,   kSlave,     kSlave,   kSlave},
    {"SlaveAlone",           "slaveAlone",  kLast,   kLast,      kSlave,   kLast},
    {"SlaveAloneLowerCase",  "slavealone",  kLast,   kLast,      kLast,    kLast},
    {"SlaveAloneOne",        "slaveAlone1", kLast,   kLast,      kLast,    kLast},
    {"SlaveOne",             "slave1",      kLast,   kLast,      kLast,    kLast},
    {"SlaveTwo",             "slave2",      kLast,   kLast,      kLast,    kLast},
    {"SlaveUpperCase",       "SLAVE",       kLast,   kLast,      kLast,    kLast},
    {"SlaveAfterBlank",      " slave",      kLast,   kLast,      kLast,    kLast},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Labels, RunInfoKeys, testing::ValuesIn(kRows), rowName<Row>);

} // namespace
