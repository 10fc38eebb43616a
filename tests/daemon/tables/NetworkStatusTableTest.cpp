// The network verdict: what a master and any other node find, in which order they look,
// and between which two events role, ask and count change. Each probe is made only when
// the one before it leaves the answer open. Only a service interface without carrier makes
// a master drop the virtual IP and ask its partner.
#include <sstream>
#include <tuple>

#include <Poco/Net/NetException.h>

#include "Workers.h"

namespace
{

const char kCarrier[] = "cat /sys/class/net/eth0/carrier";
const char kKill[] = "kill-by-name dbServer";
const char kStop[] = "vip-stop";

/// A command that cannot be started.
events::List notStarted(const std::string& command)
{
	return {"command " + command, "log E Utill:550 shell command run error(fp is NULL): " + command, "sleep 1000"};
}

std::map<std::string, events::List> makeEvents()
{
	const auto line = [](int number, const std::string& text)
	{ return "log D CHeartReciver:" + std::to_string(number) + " " + text; };
	const auto probe = [](int number, const std::string& text)
	{ return "log D Utill:" + std::to_string(number) + " " + text; };
	const std::string cat = std::string("command ") + kCarrier;
	const std::string carrier = std::string("log I Utill:573 command(") + kCarrier + ") : ";
	// clang-format off
	return {
	    {"master",        {line(500, "networkStatus : start"), line(505, "networkStatus : MASTER network check...")}},
	    {"slave",         {line(500, "networkStatus : start"), line(538, "networkStatus : SLAVE")}},
	    {"gateway?",      {probe(774, "myComunicationIPcheck : START"), "ping 10.0.0.254 x10"}},
	    {"gateway",       {probe(783, "myComunicationIPcheck : TRUE")}},
	    {"no-gateway",    {probe(791, "myComunicationIPcheck : FALSE")}},
	    {"bad-gateway",   {"log E Utill:789 My Comunication IP Check Failed: Host not found: nobody[CODE:3]"}},
	    {"service?",      {probe(797, "serviceIPcheck : START"), "ping 10.0.1.100 x10"}},
	    {"service",       {probe(807, "serviceIP[10.0.1.100],serviceIPcheck : true")}},
	    {"no-service",    {probe(817, "serviceIPcheck : false")}},
	    {"bad-service",   {"log E Utill:814 service IP Check Failed: Host not found: nobody[CODE:3]"}},
	    {"partner?",      {probe(756, "partnerComunicationIPcheck : partnerIP: 10.0.0.2"), "ping 10.0.0.2 x10"}},
	    {"partner",       {probe(760, "partnerComunicationIPcheck : true")}},
	    {"no-partner",    {probe(768, "partnerComunicationIPcheck : false")}},
	    {"bad-partner",   {"log E Utill:766 partner Comunication IP Check Failed: Host not found: nobody[CODE:3]"}},
	    {"carrier",       {cat, carrier + "1\n\n"}},
	    {"no-carrier",    {cat, carrier + "0\n\n"}},
	    {"bad-carrier",   notStarted(kCarrier)},
	    {"isolated",      {line(508, "my comunication IP is not OK (1)"), line(509, "master -> slave  process kill")}},
	    {"unserved",      {line(516, "my service IP is not OK (2)"), line(517, "master -> slave  process kill")}},
	    {"unplugged",     {line(524, "my service LanCard is not OK (3)"), line(525, "master -> slave  process kill")}},
	    {"kill",          steps::kKillPrograms},
	    {"bad-kill",      notStarted(kKill)},
	    {"drop",          steps::kDropAddress},
	    {"bad-drop",      notStarted(kStop)},
	    {"alone",         {line(543, "networkStatus : SLAVE 1")}},
	    {"takes-over",    {line(548, "partner comunication IP is not OK"), line(549, "slave -> master  process run")}},
	    {"run",           steps::kRunPrograms},
	};
	// clang-format on
}

/// @return the events of the names, between blanks
events::List eventsOf(const std::string& names)
{
	static const std::map<std::string, events::List> all = makeEvents();
	std::istringstream stream(names);
	events::List result;
	for (std::string name; stream >> name;)
	{
		result.insert(result.end(), all.at(name).begin(), all.at(name).end());
	}
	return result;
}

constexpr int kThrows = -100; ///< replies of a ping that raises

void setReplies(const std::string& address, int replies)
{
	if (replies == kThrows)
	{
		events::at("ping " + address + " ", events::throws(Poco::Net::HostNotFoundException("nobody", 3)));
	}
	else
	{
		fakeoutside::pingGives(address, {replies});
	}
}

struct Row
{
	const char* name;
	MODE role;
	int partner; ///< replies to the pings
	int gateway;
	int service;
	const char* carrier; ///< what its file holds; "" when it cannot be read
	const char* fails;   ///< a command that cannot be started
	int verdict;
	const char* steps;
	std::vector<std::string> changes; ///< from ask 0 and count 2
};

class NetworkStatus : public ReceiverTest, public testing::WithParamInterface<Row>
{
};

TEST_P(NetworkStatus, Decides)
{
	const Row& row = GetParam();
	setReplies("10.0.0.2", row.partner);
	setReplies("10.0.0.254", row.gateway);
	setReplies("10.0.1.100", row.service);
	fakeoutside::commandPrints(kCarrier, {row.carrier});
	if (*row.carrier == '\0')
	{
		fakeoutside::commandFails(kCarrier);
	}
	fakeoutside::commandFails(row.fails);
	mode = row.role;
	count() = 2;
	int verdict = -1;

	const std::vector<std::string> changes = stateChanges([&] { verdict = receiver->networkStatus(); });

	EXPECT_EQ(verdict, row.verdict);
	EXPECT_THAT(events::all(), ElementsAreArray(eventsOf(row.steps)));
	EXPECT_THAT(changes, ElementsAreArray(row.changes));
	EXPECT_FALSE(running);
}

const char kGivesUp[] = "role 2 status 1 ask 0 count 2 at command kill-by-name dbServer";
const char kAsks[] = "role 2 status 1 ask 1 count 0 at the end";
const char kTakesOver[] = "role 1 status 1 ask 0 count 2 at log D Utill:48 try to start virtual ip";

// clang-format off
const Row kRows[] = {
    // name                            own part  gatew    serv    carrier fails verdict steps                                                                        changes
    {"MasterSeesAll",                   1,  0, 10,      10,      "1\n", "-",   1, "master gateway? gateway service? service carrier",                               {}},
    {"MasterSeesOneReplyEach",          1,  0,  1,       1,      "1\n", "-",   1, "master gateway? gateway service? service carrier",                               {}},
    {"MasterSeesNoGateway",             1, 10,  0,      10,      "1\n", "-",   0, "master gateway? no-gateway isolated kill",                                       {kGivesUp}},
    {"MasterSeesNothing",               1,  0,  0,       0,      "0\n", "-",   0, "master gateway? no-gateway isolated kill",                                       {kGivesUp}},
    {"MasterCannotPingTheGateway",      1, 10, kThrows, 10,      "1\n", "-",   0, "master gateway? bad-gateway no-gateway isolated kill",                           {kGivesUp}},
    {"MasterAloneCannotKill",           1, 10,  0,      10,      "1\n", kKill, 0, "master gateway? no-gateway isolated bad-kill",                                   {kGivesUp}},
    {"MasterSeesNoService",             1, 10, 10,       0,      "1\n", "-",   0, "master gateway? gateway service? no-service unserved kill",                      {kGivesUp}},
    {"MasterSeesNoServiceNorCarrier",   1, 10, 10,       0,      "0\n", "-",   0, "master gateway? gateway service? no-service unserved kill",                      {kGivesUp}},
    {"MasterCannotPingTheService",      1, 10, 10,      kThrows, "1\n", "-",   0, "master gateway? gateway service? bad-service no-service unserved kill",          {kGivesUp}},
    {"MasterUnservedCannotKill",        1, 10, 10,       0,      "1\n", kKill, 0, "master gateway? gateway service? no-service unserved bad-kill",                  {kGivesUp}},
    {"MasterHasNoCarrier",              1, 10, 10,      10,      "0\n", "-",   0, "master gateway? gateway service? service no-carrier unplugged kill drop",         {kGivesUp, kAsks}},
    {"MasterCannotReadTheCarrier",      1, 10, 10,      10,      "",    "-",   0, "master gateway? gateway service? service bad-carrier unplugged kill drop",        {kGivesUp, kAsks}},
    {"MasterUnpluggedCannotKill",       1, 10, 10,      10,      "0\n", kKill, 0, "master gateway? gateway service? service no-carrier unplugged bad-kill drop",     {kGivesUp, kAsks}},
    {"MasterUnpluggedCannotDrop",       1, 10, 10,      10,      "0\n", kStop, 0, "master gateway? gateway service? service no-carrier unplugged kill bad-drop",     {kGivesUp, kAsks}},
    {"SlaveSeesItsPartner",             2, 10,  0,       0,      "0\n", "-",   1, "slave partner? partner",                                                         {}},
    {"SlaveSeesOneReplyOfItsPartner",   2,  1, 10,       0,      "1\n", "-",   1, "slave partner? partner",                                                         {}},
    {"SlaveSeesTheServiceAlone",        2,  0,  0,       1,      "0\n", "-",   1, "slave partner? no-partner service? service",                                     {}},
    {"SlaveCannotPingItsPartner",       2, kThrows, 10, 10,      "1\n", "-",   1, "slave partner? bad-partner no-partner service? service",                         {}},
    {"SlaveSeesItsGatewayAlone",        2,  0,  1,       0,      "0\n", "-",   0, "slave partner? no-partner service? no-service alone gateway? gateway takes-over run", {kTakesOver}},
    {"SlaveCannotPingBoth",             2, kThrows, 10, kThrows, "1\n", "-",   0, "slave partner? bad-partner no-partner service? bad-service no-service alone gateway? gateway takes-over run", {kTakesOver}},
    {"SlaveSeesNothing",                2,  0,  0,       0,      "1\n", "-",   1, "slave partner? no-partner service? no-service alone gateway? no-gateway",        {}},
    {"SlaveCannotPingTheGateway",       2,  0, kThrows,  0,      "1\n", "-",   1, "slave partner? no-partner service? no-service alone gateway? bad-gateway no-gateway", {}},
    {"MasterHasLessThanNoReplies",      1, -1, -1,      10,      "1\n", "-",   0, "master gateway? no-gateway isolated kill",                                       {kGivesUp}},
    {"SlaveHasLessThanNoReplies",       2, -1, -1,      -1,      "1\n", "-",   1, "slave partner? no-partner service? no-service alone gateway? no-gateway",        {}},
    {"UnsetSeesItsPartner",             0, 10,  0,       0,      "0\n", "-",   1, "slave partner? partner",                                                         {}},
    {"UnsetTakesOver",                  0,  0, 10,       0,      "1\n", "-",   0, "slave partner? no-partner service? no-service alone gateway? gateway takes-over run", {kTakesOver}},
    {"RoleThreeSeesTheService",         3,  0,  0,      10,      "0\n", "-",   1, "slave partner? no-partner service? service",                                     {}},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Table, NetworkStatus, testing::ValuesIn(kRows), rowName<Row>);

using NetworkStatusAsk = ReceiverTest;

TEST_F(NetworkStatusAsk, APassedCheckLeavesAPendingAskAloneAndANewOneCountsAnew)
{
	mode = 1;
	count() = 3;
	velarix::storeShared(g_specialAsking, std::int32_t{1});
	fakeoutside::commandPrints(kCarrier, {"1\n", "0\n"});
	EXPECT_EQ(receiver->networkStatus(), 1);
	EXPECT_EQ(velarix::loadShared(g_specialAsking), 1);
	EXPECT_EQ(count(), 3);
	EXPECT_EQ(receiver->networkStatus(), 0);
	EXPECT_EQ(velarix::loadShared(g_specialAsking), 1);
	EXPECT_EQ(count(), 0);
}

TEST_F(NetworkStatusAsk, AnExceptionThatIsNotTheLibrarysPasses)
{
	auto sender = make<CHeartSender>();
	events::at("ping ", events::throws(std::runtime_error("not of the library")));
	EXPECT_THROW(receiver->isMyNetworkOK(), std::runtime_error);
	EXPECT_THROW(sender->isPartnerNetworkOK(), std::runtime_error);
}

using ProcessStatus = ReceiverTest;

TEST_F(ProcessStatus, OnlyAMasterLooksForItsPrograms)
{
	const std::string start = "log D CHeartReciver:561 processStatus : start";
	const std::string found = "log D CHeartReciver:564 processStatus : OK";
	const std::string missing = "log D CHeartReciver:567 processStatus : ERROR";
	for (const auto& [role, runs, verdict, lines] :
	     std::vector<std::tuple<MODE, bool, int, events::List>>{{MODE_MASTER, true, 1, {start, found}},
	                                                            {MODE_MASTER, false, 0, {start, missing}},
	                                                            {MODE_SLAVE, false, 1, {}}})
	{
		mode = role;
		programRuns(runs);
		events::clear();
		EXPECT_EQ(receiver->processStatus(), verdict);
		EXPECT_EQ(events::all(), lines);
	}
}

} // namespace
