#include "Configuraion.h"
#include "Daemon.h"

namespace
{

constexpr char kOther[] = "/usr/velarix/bin/ini/other.ini";

using SettingsStore = DaemonTest;

TEST_F(SettingsStore, TheFirstCallKeepsItsInstanceAndNeitherASecondPathNorALaterChangeIsRead)
{
	settings.write(); // the next use is the first
	sandbox::writeFile(kOther, "[AGENT]\nMODE = 1\n");
	Configuraion* const pStore = Configuraion::getInstance(velarix::kSettingsPath);
	EXPECT_NE(pStore, nullptr);
	EXPECT_EQ(Configuraion::pConf, pStore);
	EXPECT_EQ(pStore->getInt("AGENT.HEART_BEAT_RECEIVE_PORT"), 7001);
	sandbox::writeFile(velarix::kSettingsPath, "[AGENT]\nMODE = 1\n");
	EXPECT_EQ(Configuraion::getInstance(kOther), pStore);
	EXPECT_EQ(Configuraion::getInstance(velarix::kSettingsPath)->getInt("AGENT.MODE"), 2);
	EXPECT_THAT(events::all(), IsEmpty());
}

TEST_F(SettingsStore, LoadFileTakesTheNewFileInPlaceOfTheOldOne)
{
	settings.write();
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

} // namespace
