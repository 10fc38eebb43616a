// Every fault that a settings file can have by itself, and what is found; those of the
// three commands are in TrialTableTest.cpp. The
// sound file of SoundSettings.cpp gets one key set to another value (or dropped),
// and lines appended from line 27 on; all findings are listed, with their lines.

#include "CtlTest.h"
#include "SoundSettings.h"
#include "ctl/check/Check.h"

using namespace velarix::ctl;
using namespace velarix::inspect;

namespace
{

constexpr char kDropped[] = "(dropped)";
constexpr char kStart[] = "VIRTUAL_IP_START_COMMAND";
constexpr char kStop[] = "VIRTUAL_IP_STOP_COMMAND";
constexpr char kKill[] = "PROCESS_KILL_COMMAND";

struct Row
{
	const char* name;
	const char* key;
	const char* value;
	const char* appended;
	/// "SEVERITY ID LINE", one each line of the list
	std::vector<std::string> expected;
};

// clang-format off
const Row kRows[] = {
// name                         key                                value                            appended                             found
{"Sound",                       nullptr,                           nullptr,                         "",                                  {}},
// ---- keys that are missing, or that nobody reads
{"ModeMissing",                 "MODE",                            kDropped,                        "",                                  {"error missing-key 1"}},
{"OwnAddressMissing",           "THIS_SERVER_IP",                  kDropped,                        "",                                  {"error missing-key 1"}},
{"ReceivePortMissing",          "HEART_BEAT_RECEIVE_PORT",         kDropped,                        "",                                  {"error missing-key 1"}},
{"PartnerMissing",              "PARTNER_IP",                      kDropped,                        "",                                  {"error missing-key 1"}},
{"PartnerPortMissing",          "PARTNER_HEART_BEAT_RECEIVE_PORT", kDropped,                        "",                                  {"error missing-key 1"}},
{"IntervalMissing",             "HEART_BEAT_INTERVAL",             kDropped,                        "",                                  {"error missing-key 1"}},
{"ReceivingTimeMissing",        "MAX_HEART_BEAT_RECEIING_TIME",    kDropped,                        "",                                  {"error missing-key 1"}},
{"IgnoreTimeMissing",           "IGNORE_TIME",                     kDropped,                        "",                                  {"error missing-key 1"}},
{"GatewayMissing",              "GATEWAY_IP",                      kDropped,                        "",                                  {"error missing-key 1"}},
{"StartCommandMissing",         kStart,                            kDropped,                        "",                                  {"error missing-key 1"}},
{"StopCommandMissing",          kStop,                             kDropped,                        "",                                  {"error missing-key 1"}},
{"WaitingTimeMissing",          "WAITING_TIME_BEFORE_PROCESS_RUN", kDropped,                        "",                                  {"error missing-key 1"}},
{"RelatedProcessMissing",       "RELATED_PROCESS",                 kDropped,                        "",                                  {"error missing-key 1"}},
{"ProgramNumberMissing",        "PROCESS_NUM",                     kDropped,                        "",                                  {"error missing-key 16"}},
{"ProgramMissing",              "PROCESS_PATH1",                   kDropped,                        "",                                  {"error missing-program 16"}},
{"SecondProgramMissing",        "PROCESS_NUM",                     "9",                             "",                                  {"error missing-program 16"}},
{"CycleMissing",                "PROCESS_CHECK_CYCLE",             kDropped,                        "",                                  {"error missing-key 16"}},
{"ObservationModeMissing",      "OBSERVATION_MODE",                kDropped,                        "",                                  {"error missing-key 16"}},
{"KillCommandMissing",          kKill,                             kDropped,                        "",                                  {"error missing-key 21"}},
{"KeywordIsReadByNobody",       "KEYWORD",                         kDropped,                        "",                                  {"warning missing-key 21"}},
{"LogPathMissing",              "PATH",                            kDropped,                        "",                                  {"error missing-key 24"}},
{"PurgeAgeMissing",             "PURGEAGE",                        kDropped,                        "",                                  {"error missing-key 24"}},
{"SpelledProperly",             nullptr,                           nullptr,                         "[AGENT]\nMAX_HEART_BEAT_RECEIVING_TIME = 3", {"warning unknown-key 28"}},
{"NoKeyAtAll",                  nullptr,                           nullptr,                         "[AGENT]\nCOLOUR = green",           {"warning unknown-key 28"}},
{"ProgramNumberedFromZero",     nullptr,                           nullptr,                         "[PROCESS_CHECK]\nPROCESS_PATH0 = /opt/x", {"warning unknown-key 28"}},
{"ProgramNotCounted",           nullptr,                           nullptr,                         "[PROCESS_CHECK]\nPROCESS_PATH2 = /opt/x", {"warning program-not-counted 28"}},
{"KeyTwice",                    nullptr,                           nullptr,                         "[AGENT]\nmode = 2",                 {"warning repeated-key 2"}},
{"LineWithoutEquals",           nullptr,                           nullptr,                         "COMMENT",                           {"warning no-assignment 27", "warning unknown-key 27"}},
{"HashLinesAreHarmless",        nullptr,                           nullptr,                         "# a comment\n#KEY = 1",             {}},
// ---- values that are not what they should be
{"ModeIsAWord",                 "MODE",                            "master",                        "",                                  {"error not-a-number 2"}},
{"ModeIsEmpty",                 "MODE",                            "",                              "",                                  {"error not-a-number 2"}},
{"ModeWithAComment",            "MODE",                            "1 ; master",                    "",                                  {"error not-a-number 2"}},
{"IntervalIsAFraction",         "HEART_BEAT_INTERVAL",             "0.5",                           "",                                  {"error not-a-number 7"}},
{"ReceivingTimeWithUnit",       "MAX_HEART_BEAT_RECEIING_TIME",    "2s",                            "",                                  {"error not-a-number 8"}},
{"IgnoreTimeTooGreat",          "IGNORE_TIME",                     "2147483648",                    "",                                  {"error not-a-number 9"}},
{"HexadecimalIsANumber",        "HEART_BEAT_RECEIVE_PORT",         "0x1B58",                        "",                                  {}},
{"ThousandsAreANumber",         "HEART_BEAT_RECEIVE_PORT",         "7,000",                         "",                                  {}},
{"DecimalComma",                "MAX_HEART_BEAT_RECEIING_TIME",    "3,5",                           "",                                  {"error comma-in-number 8"}},
{"CommaAtTheWrongPlace",        "HEART_BEAT_RECEIVE_PORT",         "70,00",                         "",                                  {"error comma-in-number 4"}},
{"ModeThree",                   "MODE",                            "3",                             "",                                  {"warning unknown-role 2"}},
{"ModeZero",                    "MODE",                            "0",                             "",                                  {"warning unknown-role 2"}},
{"ObservationModeSeven",        "OBSERVATION_MODE",                "7",                             "",                                  {"warning unknown-observation-mode 20"}},
{"ReferenceToAKey",             "GATEWAY_IP",                      "${X.G}",                        "[X]\nG = 192.0.2.254",              {"warning unknown-key 28"}},
{"ReferenceToItself",           "GATEWAY_IP",                      "${AGENT.GATEWAY_IP}",           "",                                  {"error endless-reference 10"}},
{"ReferenceToNothing",          "GATEWAY_IP",                      "${X.G}",                        "",                                  {"error reference-to-nothing 10"}},
{"ReferenceNotClosed",          "GATEWAY_IP",                      "${AGENT.PARTNER_IP",            "",                                  {"warning reference-not-closed 10", "error same-address 10"}},
{"CommentInAnAddress",          "GATEWAY_IP",                      "192.0.2.254 ; router",          "",                                  {"warning comment-in-value 10"}},
{"CommentInTheVirtualIP",       "VIRTUAL_IP",                      "198.51.100.10 ; shared",        "",                                  {"error comment-in-value 11"}},
{"CommentInThePath",            "PATH",                            "/usr/velarix/log/v.log # here", "",                                  {"error comment-in-value 25"}},
{"QuotedPath",                  "PATH",                            "\"/usr/velarix/log/v.log\"",    "",                                  {"error quoted-value 25"}},
// ---- ports
{"ReceivePortZero",             "HEART_BEAT_RECEIVE_PORT",         "0",                             "",                                  {"error port-out-of-range 4"}},
{"ReceivePortNegative",         "HEART_BEAT_RECEIVE_PORT",         "-1",                            "",                                  {"error port-out-of-range 4"}},
{"ReceivePortTooGreat",         "HEART_BEAT_RECEIVE_PORT",         "70000",                         "",                                  {"error port-out-of-range 4"}},
{"GreatestPort",                "HEART_BEAT_RECEIVE_PORT",         "65535",                         "",                                  {}},
{"PartnerPortZero",             "PARTNER_HEART_BEAT_RECEIVE_PORT", "0",                             "",                                  {"error port-out-of-range 6"}},
{"PartnerPortTooGreat",         "PARTNER_HEART_BEAT_RECEIVE_PORT", "65536",                         "",                                  {"error port-out-of-range 6"}},
// ---- times
{"IntervalZero",                "HEART_BEAT_INTERVAL",             "0",                             "",                                  {"error zero-time 7"}},
{"IntervalNegative",            "HEART_BEAT_INTERVAL",             "-1",                            "",                                  {"error negative-time 7"}},
{"ReceivingTimeZero",           "MAX_HEART_BEAT_RECEIING_TIME",    "0",                             "",                                  {"error zero-time 8"}},
{"ReceivingTimeNegative",       "MAX_HEART_BEAT_RECEIING_TIME",    "-2",                            "",                                  {"error negative-time 8"}},
{"ReceivingTimeShort",          "MAX_HEART_BEAT_RECEIING_TIME",    "1",                             "",                                  {"warning short-receiving-time 8"}},
{"ReceivingTimeLong",           "MAX_HEART_BEAT_RECEIING_TIME",    "31",                            "",                                  {"warning slow-take-over 8"}},
{"ReceivingTimeThirty",         "MAX_HEART_BEAT_RECEIING_TIME",    "30",                            "",                                  {}},
{"CycleZero",                   "PROCESS_CHECK_CYCLE",             "0",                             "",                                  {"error zero-time 19"}},
{"CycleNegative",               "PROCESS_CHECK_CYCLE",             "-5",                            "",                                  {"error negative-time 19"}},
{"WaitingTimeZeroIsFine",       "WAITING_TIME_BEFORE_PROCESS_RUN", "0",                             "",                                  {}},
{"WaitingTimeNegative",         "WAITING_TIME_BEFORE_PROCESS_RUN", "-1",                            "",                                  {"error negative-time 14"}},
{"WaitingTimeLong",             "WAITING_TIME_BEFORE_PROCESS_RUN", "61",                            "",                                  {"warning long-waiting-time 14"}},
{"IgnoreTimeHasNoEffect",       "IGNORE_TIME",                     "-1",                            "",                                  {}},
// ---- addresses
{"OwnAddressEmpty",             "THIS_SERVER_IP",                  "",                              "",                                  {"error empty-address 3"}},
{"OwnAddressWithATooGreatByte", "THIS_SERVER_IP",                  "192.0.2.300",                   "",                                  {"error not-an-address 3"}},
{"PartnerIsNoAddress",          "PARTNER_IP",                      "192.0.2",                       "",                                  {"error not-an-address 5"}},
{"PartnerIsAName",              "PARTNER_IP",                      "node-b",                        "",                                  {"warning address-is-a-name 5"}},
{"OwnAddressIsAName",           "THIS_SERVER_IP",                  "node-a",                        "",                                  {"warning address-is-a-name 3"}},
{"OwnAddressWithAPrefix",       "THIS_SERVER_IP",                  "192.0.2.1/24",                  "",                                  {"error not-an-address 3"}},
{"PartnerWithAPort",            "PARTNER_IP",                      "192.0.2.2:7000",                "",                                  {"error not-an-address 5"}},
{"GatewayWithAPrefix",          "GATEWAY_IP",                      "192.0.2.254/24",                "",                                  {"error not-an-address 10"}},
{"PartnerOfForeignBytes",       "PARTNER_IP",                      "192.0.2.\xff",                  "",                                  {"error not-an-address 5"}},
{"VirtualIPWithAPrefix",        "VIRTUAL_IP",                      "198.51.100.10/24",              "",                                  {"error not-an-address 11"}},
{"PartnerIsIPv6",               "PARTNER_IP",                      "2001:db8::2",                   "",                                  {"error address-not-ipv4 5"}},
{"GatewayIsLoopback",           "GATEWAY_IP",                      "127.0.0.1",                     "",                                  {"error unusable-address 10"}},
{"GatewayIsMulticast",          "GATEWAY_IP",                      "224.0.0.18",                    "",                                  {"error unusable-address 10"}},
{"ListensEverywhere",           "THIS_SERVER_IP",                  "0.0.0.0",                       "",                                  {"warning listens-everywhere 3"}},
{"PartnerIsItself",             "PARTNER_IP",                      "192.0.2.1",                     "",                                  {"error same-address 3"}},
{"GatewayIsThePartner",         "GATEWAY_IP",                      "192.0.2.2",                     "",                                  {"error same-address 10"}},
{"GatewayIsItself",             "GATEWAY_IP",                      "192.0.2.1",                     "",                                  {"error same-address 10"}},
{"GatewayIsTheService",         "GATEWAY_IP",                      "198.51.100.10",                 "",                                  {"error same-address 10"}},
{"VirtualIPIsItself",           "THIS_SERVER_IP",                  "198.51.100.10",                 "",                                  {"error same-address 11"}},
{"VirtualIPIsThePartner",       "PARTNER_IP",                      "198.51.100.10",                 "",                                  {"error same-address 11"}},
{"VirtualIPInsideTheOwn",       "THIS_SERVER_IP",                  "198.51.100.101",                "",                                  {"error address-inside-another 11"}},
// ---- programs
{"NoPrograms",                  "PROCESS_NUM",                     "0",                             "",                                  {"warning no-programs 17", "warning program-not-counted 18"}},
{"LessThanNoPrograms",          "PROCESS_NUM",                     "-1",                            "",                                  {"error no-programs 17", "warning program-not-counted 18"}},
{"ProgramEmpty",                "PROCESS_PATH1",                   "",                              "",                                  {"error empty-program 18"}},
{"ProgramIsADirectory",         "PROCESS_PATH1",                   "/opt/service/",                 "",                                  {"error program-is-a-directory 18"}},
{"ProgramWithoutDirectory",     "PROCESS_PATH1",                   "server",                        "",                                  {"error program-without-directory 18"}},
{"ProgramRelative",             "PROCESS_PATH1",                   "bin/server",                    "",                                  {"error relative-program 18"}},
{"ProgramWithArguments",        "PROCESS_PATH1",                   "/opt/server -d",                "",                                  {"error program-with-arguments 18"}},
{"ProgramWithASlashBehind",     "PROCESS_PATH1",                   "/opt/server -c /etc/s.conf",    "",                                  {"error argument-with-slash 18"}},
{"NameOf15IsFine",              "PROCESS_PATH1",                   "/opt/abcdefghijklmno",          "",                                  {}},
{"NameOf16",                    "PROCESS_PATH1",                   "/opt/abcdefghijklmnop",         "",                                  {"error long-program-name 18"}},
{"NameInEveryProcess",          "PROCESS_PATH1",                   "/opt/am",                       "",                                  {"error name-in-every-process 18"}},
{"NameOfTheAgent",              "PROCESS_PATH1",                   "/opt/Velarix",                  "",                                  {"error name-of-the-agent 18"}},
{"NameOfAnInterpreter",         "PROCESS_PATH1",                   "/usr/bin/python3",              "",                                  {"error name-of-an-interpreter 18"}},
{"NameOfTheShell",              "PROCESS_PATH1",                   "/opt/sh",                       "",                                  {"error name-of-an-interpreter 18"}},
{"NameOfAHelper",               "PROCESS_PATH1",                   "/opt/sleep",                    "",                                  {"warning name-of-a-helper 18"}},
{"ProgramWithADollar",          "PROCESS_PATH1",                   "/opt/$HOME",                    "",                                  {"error shell-character-in-program 18"}},
{"CommandInQuotes",             kStop,                             "\"ip addr del 198.51.100.10/24 dev eth0\"", "",                         {"error quoted-value 13"}},
{"ProgramInQuotes",             "PROCESS_PATH1",                   "\"/opt/server\"",               "",                                  {"error quoted-value 18"}},
{"KillScriptByItsPath",         kKill,                             "/usr/local/sbin/kill",          "",                                  {}},
{"SameNameTwice",               "PROCESS_NUM",                     "2",                             "[PROCESS_CHECK]\nPROCESS_PATH2 = /srv/server", {"warning same-name 18"}},
{"NameWithinAName",             "PROCESS_NUM",                     "2",                             "[PROCESS_CHECK]\nPROCESS_PATH2 = /srv/serve", {"warning name-within-a-name 28"}},
// ---- the log
{"LogPathEmpty",                "PATH",                            "",                              "",                                  {"error empty-log-path 25"}},
{"LogPathRelative",             "PATH",                            "velarix.log",                   "",                                  {"warning relative-log-path 25"}},
{"PurgeAgeWithoutUnit",         "PURGEAGE",                        "30",                            "",                                  {"error bad-purge-age 26"}},
{"PurgeAgeOfWeeks",             "PURGEAGE",                        "2 weeks",                       "",                                  {}},
{"PurgeAgeInTheSingular",       "PURGEAGE",                        "1 week",                        "",                                  {"error bad-purge-age 26"}},
{"PurgeAgeZero",                "PURGEAGE",                        "0 days",                        "",                                  {"error bad-purge-age 26"}},
{"PurgeAgeNone",                "PURGEAGE",                        "none",                          "",                                  {"warning logs-kept-for-ever 26"}},
{"PurgeAgeEmpty",               "PURGEAGE",                        "",                              "",                                  {"warning logs-kept-for-ever 26"}},
{"PurgeAgeShort",               "PURGEAGE",                        "30 minutes",                    "",                                  {"warning short-purge-age 26"}},
};
// clang-format on

class DefectTable : public CtlTest, public testing::WithParamInterface<Row>
{
};

std::string shortForm(const Finding& finding)
{
	std::ostringstream text;
	text << (finding.severity == Severity::error ? "error " : "warning ") << finding.id << ' ' << finding.line;
	return text.str();
}

TEST_P(DefectTable, IsFoundAtItsLine)
{
	const Row& row = GetParam();
	std::vector<std::string> lines = soundLines();
	if (row.key != nullptr)
	{
		std::string(row.value) == kDropped ? dropKey(lines, row.key) : setKey(lines, row.key, row.value);
	}
	const auto file = write("/config.ini", joined(lines) + row.appended + "\n");
	const CheckReport report = check({.file = file, .partner = {}, .filesOnly = true}, Paths(root()));
	std::vector<std::string> found;
	for (const Finding& finding : report.findings)
	{
		EXPECT_EQ(finding.file, file);
		EXPECT_FALSE(finding.what.empty() || finding.effect.empty() || finding.remedy.empty()) << finding.id;
		found.push_back(shortForm(finding));
	}
	EXPECT_EQ(found, row.expected);
}

INSTANTIATE_TEST_SUITE_P(Defects, DefectTable, testing::ValuesIn(kRows), rowName<Row>);

} // namespace
