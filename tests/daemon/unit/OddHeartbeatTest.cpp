// Heartbeats that look odd and are accepted, and what is none and changes nothing.

#include "ReceiverTest.h"

namespace
{

/// Accepted texts, heard by a slave with the status NOT OK and a pending ask: a
/// master's heartbeat makes the status OK.
class OddHeartbeat : public ReceiverTest
{
protected:
	void SetUp() override
	{
		ReceiverTest::SetUp();
		status() = 0;
	}

	void expectMasterHeard(const std::string& text, const std::string& prefix, const std::string& ask)
	{
		receiver->ParsingReceivedMessage(text);
		EXPECT_EQ(status(), 1);
		EXPECT_THAT(events::all(),
		            ElementsAre("log D CHeartReciver:249 szTmp[process] szPreFix[" + prefix + "]",
		                        "log D CHeartReciver:329 My NetWork Status: NOT OK MY:SLAVE PARTNER:MASTER OK",
		                        "log D CHeartReciver:376 szTmp[1] szPartnerProcessRunning[" + ask + "]"));
	}
};

TEST_F(OddHeartbeat, APrefixWithMoreLettersIsAccepted)
{
	expectMasterHeard("/processX/1/1/x/0/", "processX", "0");
}

TEST_F(OddHeartbeat, TheRunningAndStartTimeFieldsDecideNothing)
{
	for (const char* fields : {"/process/0/1//0/", "/process/1/1/20240131235959/0/", "/process/yes/1/never/0/",
	                           "/process//1/99999999999999/0/"})
	{
		status() = 0;
		events::clear();
		expectMasterHeard(fields, "process", "0");
	}
}

TEST_F(OddHeartbeat, ARoleWithALineFeedIsASlave)
{
	status() = 1;
	receiver->ParsingReceivedMessage("/process/1/1\n/x/0/");
	EXPECT_THAT(events::all(), ElementsAreArray(steps::heard(
	                               {"log D CHeartReciver:411 szTmp[1] specialAsk[0]",
	                                "log D CHeartReciver:418 My NetWork Status: OK MY:SLAVE PARTNER:SLAVE OK"})));
}

TEST_F(OddHeartbeat, WhatIsNoneChangesNothing)
{
	const char* const outOfRange = "log E CHeartReciver:246 Out of range";
	const auto unknown = [](const std::string& prefix)
	{ return "log D CHeartReciver:252 preFix unknown: [" + prefix + "]"; };
	const std::map<std::string, std::string> rows{{"", outOfRange},
	                                              {"/", outOfRange},
	                                              {"garbage", outOfRange},
	                                              {"process/0/2/x/1/", outOfRange},
	                                              {"/process/0/2/x/", outOfRange},
	                                              {"/proc/0/2/x/1/", unknown("proc")},
	                                              {"/Process/0/2/x/1/", unknown("Process")},
	                                              {"/ process/0/2/x/1/", unknown(" process")},
	                                              {"//0/2/x/1/", unknown("")}};
	velarix::storeShared(g_specialAsking, std::int32_t{1});
	count() = 2;
	for (const auto& [text, line] : rows)
	{
		events::clear();
		EXPECT_THAT(stateChanges([this, &text = text] { receiver->ParsingReceivedMessage(text); }), testing::IsEmpty());
		EXPECT_EQ(events::all().back(), line) << text;
		EXPECT_THAT(events::without({"log "}), testing::IsEmpty()) << text;
	}
}

} // namespace
