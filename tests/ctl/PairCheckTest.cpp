// What must fit between the files of the two nodes. One row per line: a key of
// either file set to another value, and all findings.

#include "CheckTest.h"

using namespace velarix::ctl;
using namespace velarix::inspect;

namespace
{

struct Row
{
	const char* name;
	/// "a" or "b": whose key; then another one of the same file
	const char* node;
	const char* key;
	const char* value;
	std::vector<std::string> expected;
};

constexpr char kStart16[] =
    "ip addr add 198.51.100.10/16 dev eth0 label eth0:ha; arping -q -A -c 3 -I eth0 198.51.100.10";

// clang-format off
const Row kRows[] = {
// name                     node key                                value             found
{"BothFit",                 "a", "IGNORE_TIME",                     "10",             {}},
{"PartnerIsAnother",        "a", "PARTNER_IP",                      "192.0.2.3",      {"error addresses-not-mirrored /a.ini:5"}},
{"ThePartnersPartner",      "b", "PARTNER_IP",                      "192.0.2.9",      {"error addresses-not-mirrored /b.ini:5"}},
{"OwnAddressMoved",         "a", "THIS_SERVER_IP",                  "192.0.2.7",      {"error addresses-not-mirrored /b.ini:5"}},
{"PartnerListensEverywhere","b", "THIS_SERVER_IP",                  "0.0.0.0",        {"warning listens-everywhere /b.ini:3"}},
{"PortOfThePartner",        "a", "PARTNER_HEART_BEAT_RECEIVE_PORT", "7001",           {"error ports-not-mirrored /a.ini:6"}},
{"OwnPort",                 "a", "HEART_BEAT_RECEIVE_PORT",         "7001",           {"error ports-not-mirrored /b.ini:6"}},
{"TwoMasters",              "b", "MODE",                            "1",              {"error two-masters /a.ini:2"}},
{"NoMaster",                "a", "MODE",                            "2",              {"error no-master /a.ini:2"}},
{"AnotherService",          "b", "VIRTUAL_IP",                      "198.51.100.11",  {"error virtual-ip-differs /a.ini:11", "error another-address-raised /b.ini:12"}},
{"AnotherPrefix",           "b", "VIRTUAL_IP_START_COMMAND",        kStart16,         {"warning prefix-differs /a.ini:12", "error another-prefix-dropped /b.ini:13"}},
{"AnotherGateway",          "b", "GATEWAY_IP",                      "192.0.2.253",    {"warning gateways-differ /a.ini:10"}},
{"AnotherStopCommand",      "b", "VIRTUAL_IP_STOP_COMMAND",         "/opt/ha/drop",   {"warning commands-differ /a.ini:13"}},
{"AnotherKillCommand",      "b", "PROCESS_KILL_COMMAND",            "killall -9",     {"warning commands-differ /a.ini:22"}},
{"AnotherProgram",          "b", "PROCESS_PATH1",                   "/opt/server",    {"warning programs-differ /a.ini:17"}},
{"OwnPatienceShort",        "a", "MAX_HEART_BEAT_RECEIING_TIME",    "1",              {"warning short-receiving-time /a.ini:8"}},
{"PartnersPatienceShort",   "b", "MAX_HEART_BEAT_RECEIING_TIME",    "1",              {"warning short-receiving-time /b.ini:8"}},
{"PartnerSlower",           "b", "HEART_BEAT_INTERVAL",             "2",              {"warning short-receiving-time /a.ini:8"}},
{"PartnerMuchSlower",       "b", "HEART_BEAT_INTERVAL",             "9",              {"warning paces-differ /a.ini:7", "error receiving-time-below-interval /a.ini:8"}},
{"PartnerEightSeconds",     "b", "HEART_BEAT_INTERVAL",             "8",              {"warning paces-differ /a.ini:7", "warning short-receiving-time /a.ini:8"}},
{"PartnerFaulty",           "b", "WAITING_TIME_BEFORE_PROCESS_RUN", "-1",             {"error negative-time /b.ini:14"}},
{"PartnerWithoutPace",      "b", "HEART_BEAT_INTERVAL",             "0",              {"error zero-time /b.ini:7"}},
{"PartnerWithoutAddress",   "b", "THIS_SERVER_IP",                  "",               {"error addresses-not-mirrored /a.ini:5", "error empty-address /b.ini:3"}},
};
// clang-format on

class PairCheck : public CheckTest, public testing::WithParamInterface<Row>
{
protected:
	std::filesystem::path own() const { return below("/a.ini"); }
	std::filesystem::path partner() const { return below("/b.ini"); }
};

TEST_P(PairCheck, IsFoundInTheFileWhereItIsMended)
{
	const Row& row = GetParam();
	std::vector<std::string> left = soundLines();
	std::vector<std::string> right = soundLines();
	setKey(right, "MODE", "2");
	setKey(right, "THIS_SERVER_IP", "192.0.2.2");
	setKey(right, "PARTNER_IP", "192.0.2.1");
	setKey(row.node == std::string("a") ? left : right, row.key, row.value);
	write("/a.ini", joined(left));
	write("/b.ini", joined(right));
	EXPECT_EQ(found({.file = own(), .partner = partner(), .filesOnly = true}), row.expected);
}

INSTANTIATE_TEST_SUITE_P(Pairs, PairCheck, testing::ValuesIn(kRows), rowName<Row>);

class PairFiles : public CheckTest
{
};

TEST_F(PairFiles, AMissingPartnersFileIsFoundBesideTheOwnFaults)
{
	setKey(lines, "MODE", "7");
	write("/a.ini", joined(lines));
	EXPECT_THAT(found({.file = below("/a.ini"), .partner = below("/b.ini"), .filesOnly = true}),
	            ElementsAre("warning unknown-role /a.ini:2", "error settings-missing /b.ini"));
}

TEST_F(PairFiles, TheSameFileTwiceIsNoPair)
{
	write("/a.ini", joined(lines));
	EXPECT_THAT(found({.file = below("/a.ini"), .partner = below("/a.ini"), .filesOnly = true}),
	            ElementsAre("error two-masters /a.ini:2", "error addresses-not-mirrored /a.ini:5",
	                        "error addresses-not-mirrored /a.ini:5"));
}

} // namespace
