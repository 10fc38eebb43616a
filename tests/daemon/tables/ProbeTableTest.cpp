// The three ping probes against every kind of answer: one reply is enough, and an
// error of the ping counts as silence.

#include "Probes.h"

#include <iostream>

#include <Poco/Exception.h>
#include <Poco/Net/NetException.h>

#include "Daemon.h"
#include "FakeOutside.h"

namespace
{

// clang-format off
#define PARTNER_START   "log D Utill:756 partnerComunicationIPcheck : partnerIP: 10.0.0.2"
#define PARTNER_PING    "ping 10.0.0.2 x10"
#define PARTNER_TRUE    "log D Utill:760 partnerComunicationIPcheck : true"
#define PARTNER_FALSE   "log D Utill:768 partnerComunicationIPcheck : false"
#define GATEWAY_START   "log D Utill:774 myComunicationIPcheck : START"
#define GATEWAY_PING    "ping 10.0.0.254 x10"
#define GATEWAY_TRUE    "log D Utill:783 myComunicationIPcheck : TRUE"
#define GATEWAY_FALSE   "log D Utill:791 myComunicationIPcheck : FALSE"
#define SERVICE_START   "log D Utill:797 serviceIPcheck : START"
#define SERVICE_PING    "ping 10.0.1.100 x10"
#define SERVICE_TRUE    "log D Utill:807 serviceIP[10.0.1.100],serviceIPcheck : true"
#define SERVICE_FALSE   "log D Utill:817 serviceIPcheck : false"
// clang-format on

void throwNoHost()
{
	throw Poco::Net::HostNotFoundException("10.0.0.2", 5);
}

void throwNoPermission()
{
	throw Poco::IOException("raw socket", 1);
}

struct Row
{
	const char* name;
	bool (*probe)();
	int replies;
	void (*thrower)();
	bool reachable;
	events::List events;
};

void PrintTo(const Row& row, std::ostream* pStream)
{
	*pStream << row.name;
}

// clang-format off
const Row kRows[] = {
//   name                  probe                        replies  thrower             reachable  events
	{"PartnerAnswersAll",  &partnerComunicationIPcheck, 10,      nullptr,            true,      {PARTNER_START, PARTNER_PING, PARTNER_TRUE}},
	{"PartnerAnswersOne",  &partnerComunicationIPcheck, 1,       nullptr,            true,      {PARTNER_START, PARTNER_PING, PARTNER_TRUE}},
	{"PartnerIsSilent",    &partnerComunicationIPcheck, 0,       nullptr,            false,     {PARTNER_START, PARTNER_PING, PARTNER_FALSE}},
	{"PartnerBelowZero",   &partnerComunicationIPcheck, -1,      nullptr,            false,     {PARTNER_START, PARTNER_PING, PARTNER_FALSE}},
	{"PartnerNoHost",      &partnerComunicationIPcheck, 10,      &throwNoHost,       false,     {PARTNER_START, PARTNER_PING, "log E Utill:766 partner Comunication IP Check Failed: Host not found: 10.0.0.2[CODE:5]", PARTNER_FALSE}},
	{"PartnerNoRawSocket", &partnerComunicationIPcheck, 10,      &throwNoPermission, false,     {PARTNER_START, PARTNER_PING, "log E Utill:766 partner Comunication IP Check Failed: I/O error: raw socket[CODE:1]", PARTNER_FALSE}},
	{"GatewayAnswersAll",  &myComunicationIPcheck,      10,      nullptr,            true,      {GATEWAY_START, GATEWAY_PING, GATEWAY_TRUE}},
	{"GatewayAnswersOne",  &myComunicationIPcheck,      1,       nullptr,            true,      {GATEWAY_START, GATEWAY_PING, GATEWAY_TRUE}},
	{"GatewayIsSilent",    &myComunicationIPcheck,      0,       nullptr,            false,     {GATEWAY_START, GATEWAY_PING, GATEWAY_FALSE}},
	{"GatewayBelowZero",   &myComunicationIPcheck,      -1,      nullptr,            false,     {GATEWAY_START, GATEWAY_PING, GATEWAY_FALSE}},
	{"GatewayNoHost",      &myComunicationIPcheck,      10,      &throwNoHost,       false,     {GATEWAY_START, GATEWAY_PING, "log E Utill:789 My Comunication IP Check Failed: Host not found: 10.0.0.2[CODE:5]", GATEWAY_FALSE}},
	{"GatewayNoRawSocket", &myComunicationIPcheck,      10,      &throwNoPermission, false,     {GATEWAY_START, GATEWAY_PING, "log E Utill:789 My Comunication IP Check Failed: I/O error: raw socket[CODE:1]", GATEWAY_FALSE}},
	{"ServiceAnswersAll",  &serviceIPcheck,             10,      nullptr,            true,      {SERVICE_START, SERVICE_PING, SERVICE_TRUE}},
	{"ServiceAnswersOne",  &serviceIPcheck,             1,       nullptr,            true,      {SERVICE_START, SERVICE_PING, SERVICE_TRUE}},
	{"ServiceIsSilent",    &serviceIPcheck,             0,       nullptr,            false,     {SERVICE_START, SERVICE_PING, SERVICE_FALSE}},
	{"ServiceBelowZero",   &serviceIPcheck,             -1,      nullptr,            false,     {SERVICE_START, SERVICE_PING, SERVICE_FALSE}},
	{"ServiceNoHost",      &serviceIPcheck,             10,      &throwNoHost,       false,     {SERVICE_START, SERVICE_PING, "log E Utill:814 service IP Check Failed: Host not found: 10.0.0.2[CODE:5]", SERVICE_FALSE}},
	{"ServiceNoRawSocket", &serviceIPcheck,             10,      &throwNoPermission, false,     {SERVICE_START, SERVICE_PING, "log E Utill:814 service IP Check Failed: I/O error: raw socket[CODE:1]", SERVICE_FALSE}},
};
// clang-format on

class ProbeTable : public DaemonTest, public testing::WithParamInterface<Row>
{
protected:
	void SetUp() override
	{
		DaemonTest::SetUp();
		fakeoutside::reset();
	}
};

TEST_P(ProbeTable, Row)
{
	const Row& row = GetParam();
	for (const char* address : {"10.0.0.2", "10.0.0.254", "10.0.1.100"})
	{
		fakeoutside::pingGives(address, row.replies);
		if (row.thrower != nullptr)
		{
			fakeoutside::pingThrows(address, row.thrower);
		}
	}
	EXPECT_EQ(row.probe(), row.reachable);
	EXPECT_EQ(events::all(), row.events);
}

INSTANTIATE_TEST_SUITE_P(AllProbes, ProbeTable, testing::ValuesIn(kRows),
                         [](const testing::TestParamInfo<Row>& rowInfo) { return std::string(rowInfo.param.name); });

struct MissingKey
{
	const char* name;
	bool (*probe)();
	const char* key;
	const char* consoleBefore;
};

void PrintTo(const MissingKey& row, std::ostream* pStream)
{
	*pStream << row.name;
}

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

INSTANTIATE_TEST_SUITE_P(AllProbes, ProbeMissingKeyTable, testing::ValuesIn(kMissingKeys),
                         [](const testing::TestParamInfo<MissingKey>& rowInfo)
                         { return std::string(rowInfo.param.name); });

} // namespace
