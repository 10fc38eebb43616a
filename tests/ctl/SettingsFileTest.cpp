// The reader of the settings: the library's values, our lines.

#include <sstream>

#include "CtlTest.h"
#include "ExitCode.h"
#include "settings/SettingsFile.h"

using namespace velarix::ctl;

namespace
{

SettingsFile parse(const std::string& text)
{
	return SettingsFile::parse("config.ini", text);
}

} // namespace

TEST(SettingsFile, TellsValueAndLineOfAKey)
{
	const SettingsFile file = parse("; a pair\n\n[AGENT]\nMODE = 1\n  VIRTUAL_IP=192.0.2.9  \r\n");
	EXPECT_EQ(file.integer("AGENT.MODE"), 1);
	EXPECT_EQ(file.lineOf("AGENT.MODE"), 4);
	EXPECT_EQ(file.text("AGENT.VIRTUAL_IP"), "192.0.2.9");
	EXPECT_EQ(file.lineOf("AGENT.VIRTUAL_IP"), 5);
	EXPECT_EQ(file.lineOf("AGENT.GATEWAY_IP"), 0);
}
