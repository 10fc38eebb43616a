#include <new>
#include <utility>

#include "Configuraion.h"
#include "WorkerTest.h"

namespace
{

constexpr char kOther[] = "/usr/velarix/bin/ini/other.ini";

/// Set while the store's own object must not be had from the heap.
bool g_noRoomForTheStore = false;

/// Leaves the fixture's store aside, so that the next getInstance is the first.
class SettingsStore : public DaemonTest
{
protected:
	void SetUp() override
	{
		DaemonTest::SetUp();
		forgetStore();
		g_noRoomForTheStore = false;
	}
	void TearDown() override
	{
		g_noRoomForTheStore = false;
		forgetStore();
		DaemonTest::TearDown();
	}

	static void forgetStore()
	{
		delete Configuraion::pConf;
		Configuraion::pConf = nullptr;
	}
};

} // namespace

// The store's own allocation; that of the parsed file is the library's.
extern "C" void* __real__Znwm(std::size_t size);
extern "C" void* __wrap__Znwm(std::size_t size);
extern "C" void* __wrap__Znwm(std::size_t size)
{
	if (g_noRoomForTheStore && size == sizeof(Configuraion))
	{
		throw std::bad_alloc();
	}
	return __real__Znwm(size);
}

namespace
{

TEST_F(SettingsStore, TheFirstCallKeepsTheInstanceThatItReturns)
{
	Configuraion* const pStore = Configuraion::getInstance(velarix::kSettingsPath);
	EXPECT_NE(pStore, nullptr);
	EXPECT_EQ(Configuraion::pConf, pStore);
	EXPECT_EQ(pStore->getInt("AGENT.HEART_BEAT_RECEIVE_PORT"), 7001);
	EXPECT_THAT(events::all(), IsEmpty());
}

TEST_F(SettingsStore, NeitherASecondPathNorALaterChangeOfTheFileIsRead)
{
	sandbox::writeFile(kOther, "[AGENT]\nMODE = 1\n");
	Configuraion* const pFirst = Configuraion::getInstance(velarix::kSettingsPath);
	sandbox::writeFile(velarix::kSettingsPath, "[AGENT]\nMODE = 1\n");
	EXPECT_EQ(Configuraion::getInstance(kOther), pFirst);
	EXPECT_EQ(Configuraion::getInstance(velarix::kSettingsPath)->getInt("AGENT.MODE"), 2);
}

TEST_F(SettingsStore, EachGetterGivesItsOwnType)
{
	sandbox::writeFile(kOther, "[AGENT]\nPARTNER_IP = 10.0.0.2\nMODE = 17\nQUIET = yes\nLOUD = no\n");
	Configuraion* const pStore = Configuraion::getInstance(kOther);
	EXPECT_EQ(pStore->getString("AGENT.PARTNER_IP"), "10.0.0.2");
	EXPECT_EQ(pStore->getString("AGENT.MODE"), "17");
	EXPECT_EQ(pStore->getInt("AGENT.MODE"), 17);
	EXPECT_TRUE(pStore->getBool("AGENT.QUIET"));
	EXPECT_FALSE(pStore->getBool("AGENT.LOUD"));
	EXPECT_THAT(events::all(), IsEmpty());
}

TEST_F(SettingsStore, LoadFileTakesTheNewFileInPlaceOfTheOldOne)
{
	sandbox::writeFile(kOther, "[AGENT]\nMODE = 9\n");
	Configuraion store(velarix::kSettingsPath);
	EXPECT_EQ(store.getInt("AGENT.MODE"), 2);
	EXPECT_TRUE(store.loadFile(kOther));
	EXPECT_EQ(store.getInt("AGENT.MODE"), 9);
	EXPECT_EQ(Configuraion::pConf, nullptr);
}

TEST_F(SettingsStore, ASetterChangesTheMemoryAlone)
{
	const std::string before = sandbox::readFile(velarix::kSettingsPath);
	Configuraion* const pStore = Configuraion::getInstance(velarix::kSettingsPath);
	std::string address = "192.0.2.7";
	pStore->setInt("AGENT.MODE", -41);
	pStore->setInt("AGENT.NEW", 12);
	pStore->setString("AGENT.PARTNER_IP", address);
	EXPECT_EQ(pStore->getInt("AGENT.MODE"), -41);
	EXPECT_EQ(pStore->getString("AGENT.NEW"), "12");
	EXPECT_EQ(pStore->getString("AGENT.PARTNER_IP"), "192.0.2.7");
	EXPECT_EQ(sandbox::readFile(velarix::kSettingsPath), before);
	EXPECT_EQ(Configuraion(velarix::kSettingsPath).getInt("AGENT.MODE"), 2);
	EXPECT_THAT(events::all(), IsEmpty());
}

// A store whose file was moved away is the one way to make the library refuse.
TEST_F(SettingsStore, SetStringLeavesTheLibrarysExceptionToTheCaller)
{
	Configuraion store(velarix::kSettingsPath);
	const Configuraion taken(std::move(store));
	std::string value = "x";
	EXPECT_THROW(store.setString("AGENT.MODE", value), Poco::NullPointerException); // NOLINT(bugprone-use-after-move)
	EXPECT_THAT(events::all(), IsEmpty());
}

TEST_F(SettingsStore, AFailedAllocationReachesTheCallerAndTheNextCallIsTheFirst)
{
	g_noRoomForTheStore = true;
	EXPECT_THROW(Configuraion::getInstance(velarix::kSettingsPath), std::bad_alloc);
	g_noRoomForTheStore = false;
	EXPECT_EQ(Configuraion::pConf, nullptr);
	EXPECT_THAT(events::all(), IsEmpty());
	EXPECT_EQ(Configuraion::getInstance(velarix::kSettingsPath)->getInt("AGENT.MODE"), 2);
}

class ProgramKeys : public WorkerTest
{
};

TEST_F(ProgramKeys, ThreeProgramsReadTheKeysOneToThreeAndNeverZeroOrFour)
{
	settings.programs({"/opt/one", "/opt/two", "/opt/three"});
	settings.set("PROCESS_CHECK.PROCESS_PATH0", "/opt/zero").set("PROCESS_CHECK.PROCESS_PATH4", "/opt/four");
	apply();
	EXPECT_THAT(Utill::getProcessList(), ElementsAre("/opt/one", "/opt/two", "/opt/three"));
	EXPECT_THAT(WorkerAccess::processList(*make<ProcessChecker>()), ElementsAre("/opt/one", "/opt/two", "/opt/three"));
}

} // namespace
