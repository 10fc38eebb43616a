// The launchers that start each program directly and hand back its handle.

#include "Daemon.h"
#include "OwnProcess.h"

namespace
{

constexpr char kRule[] = "======================================================";
constexpr char kFailover[] = "log E Utill:140 \n"
                             "=======================================================\n"
                             "===================  failover  ==========================\n"
                             "=======================================================";

/// The owner of what a launcher returned.
class Handles
{
public:
	explicit Handles(std::vector<Poco::ProcessHandle*>* pHandles) : m_pHandles(pHandles) {}
	~Handles()
	{
		for (Poco::ProcessHandle* pHandle : *m_pHandles)
		{
			pHandle->wait();
			delete pHandle;
		}
	}
	Handles(const Handles&) = delete;
	Handles& operator=(const Handles&) = delete;

	std::size_t size() const { return m_pHandles->size(); }
	int id(std::size_t i) const { return m_pHandles->at(i)->id(); }

private:
	std::unique_ptr<std::vector<Poco::ProcessHandle*>> m_pHandles;
};

class DirectLaunch : public DaemonTest
{
};

TEST_F(DirectLaunch, EachCommandIsLaunchedInOrderWithoutArguments)
{
	std::vector<std::string> commands{"/opt/app/one", "/opt/app/two"};
	const Handles handles(Utill::processRun(commands));
	ASSERT_EQ(handles.size(), 2U);
	EXPECT_NE(handles.id(0), handles.id(1));
	EXPECT_THAT(events::all(),
	            ElementsAre("launch /opt/app/one", "log D Utill:96 /opt/app/one started run..", "launch /opt/app/two",
	                        "log D Utill:96 /opt/app/two started run..", std::string("log E Utill:119 ") + kRule,
	                        "log E Utill:120 ================ process run =========================",
	                        std::string("log E Utill:121 ") + kRule));
}

// In a process of its own: the handles of the programs launched before are lost.
TEST_IN_OWN_PROCESS(DirectLaunch, AnExceptionOfAnotherKindPassesToTheCaller)
{
	fakeoutside::launchThrows("/opt/app/two", [] { throw std::runtime_error("other"); });
	std::vector<std::string> commands{"/opt/app/one", "/opt/app/two", "/opt/app/three"};
	EXPECT_THROW(Utill::processRun(commands), std::runtime_error);
	EXPECT_THAT(events::all(),
	            ElementsAre("launch /opt/app/one", "log D Utill:96 /opt/app/one started run..", "launch /opt/app/two"));
}

TEST_F(DirectLaunch, TheConfiguredProgramsAreLaunchedUnderTheFailoverBanner)
{
	settings.programs({"/opt/app/one", "/opt/app/two"});
	apply();
	const Handles handles(Utill::processRun());
	ASSERT_EQ(handles.size(), 2U);
	EXPECT_NE(handles.id(0), handles.id(1));
	EXPECT_THAT(events::all(),
	            ElementsAre("launch /opt/app/one", "log D Utill:96 /opt/app/one started run..", "launch /opt/app/two",
	                        "log D Utill:96 /opt/app/two started run..", kFailover));
}

TEST_F(DirectLaunch, AnExceptionOfAnotherKindPassesFromTheConfiguredProgramsToo)
{
	fakeoutside::launchThrows("/opt/app/bin/noSuchServer", [] { throw std::runtime_error("other"); });
	EXPECT_THROW(Utill::processRun(), std::runtime_error);
	EXPECT_THAT(events::all(), ElementsAre("launch /opt/app/bin/noSuchServer"));
}

TEST_F(DirectLaunch, AShellFileIsNamedByItsKey)
{
	settings.set("AGENT.BACKUP_COMMAND", "/opt/app/backup now");
	apply();
	Utill::shellFileRun("AGENT.BACKUP_COMMAND");
	EXPECT_THAT(events::all(), ElementsAre("launch /opt/app/backup now"));
}

TEST_F(DirectLaunch, AnExceptionOfAShellFilePassesToTheCaller)
{
	settings.set("AGENT.BACKUP_COMMAND", "/opt/app/backup");
	apply();
	fakeoutside::launchThrows("/opt/app/backup", [] { throw Poco::SystemException("cannot fork"); });
	EXPECT_THROW(Utill::shellFileRun("AGENT.BACKUP_COMMAND"), Poco::SystemException);
	EXPECT_THAT(events::without({"launch "}), IsEmpty());
}

} // namespace
