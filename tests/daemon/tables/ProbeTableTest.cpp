// The three ping probes without the address that they ask; what they make of the answers is in
// NetworkStatusTableTest.cpp.

#include "Probes.h"

#include <iostream>

#include "Daemon.h"

namespace
{

struct MissingKey
{
	const char* name;
	bool (*probe)();
	const char* key;
	const char* consoleBefore;
};

// The partner's probe tells its address, the others only that they begin; the
// latter is on the console even when the address is missing.
// clang-format off
const MissingKey kMissingKeys[] = {
//   name       probe                        key                 consoleBefore
	{"Partner", &partnerComunicationIPcheck, "AGENT.PARTNER_IP", ""},
	{"Gateway", &myComunicationIPcheck,      "AGENT.GATEWAY_IP", "**DEBUG**(Utill:774)myComunicationIPcheck : START\n"},
	{"Service", &serviceIPcheck,             "AGENT.VIRTUAL_IP", "**DEBUG**(Utill:797)serviceIPcheck : START\n"},
};
// clang-format on

class ProbeMissingKeyTable : public DaemonTest, public testing::WithParamInterface<MissingKey>
{
};

TEST_P(ProbeMissingKeyTable, EndsTheDaemon)
{
	const MissingKey& row = GetParam();
	settings.remove(row.key);
	apply();
	const auto probeWithConsoleOnStandardError = [&row]
	{
		std::cout.rdbuf(std::cerr.rdbuf());
		row.probe();
	};
	const std::string error = std::string("**ERROR**(Configuraion:65)Not found: ") + row.key + "\n";
	EXPECT_EXIT(
	    probeWithConsoleOnStandardError(), testing::KilledBySignal(SIGABRT),
	    testing::AllOf(testing::StartsWith(row.consoleBefore + error),
	                   testing::HasSubstr(assertionReport("0", "Configuraion", 66,
	                                                      "std::string Configuraion::getString(const std::string&)"))));
}

INSTANTIATE_TEST_SUITE_P(AllProbes, ProbeMissingKeyTable, testing::ValuesIn(kMissingKeys), rowName<MissingKey>);

} // namespace
