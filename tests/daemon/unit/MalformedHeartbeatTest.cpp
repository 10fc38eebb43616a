// Texts that are no heartbeat: logged exactly, and nothing changes whatever the
// node's role and status are. Then the oddities that are accepted.
#include "ReceiverTest.h"
#include "velarix/shared_value.h"

using testing::ElementsAre;
using testing::ElementsAreArray;

namespace
{

struct Malformed
{
	const char* name;
	std::string text;
	events::List logged;
};

void PrintTo(const Malformed& malformed, std::ostream* pStream)
{
	*pStream << malformed.name;
}

class MalformedHeartbeat : public ReceiverTest, public testing::WithParamInterface<Malformed>
{
protected:
	/// With these values every decision would leave a trace.
	void expectNoChange(MODE role, std::int32_t own)
	{
		mode = role;
		status() = own;
		count() = 3;
		velarix::storeShared(g_specialAsking, std::int32_t{1});
		events::clear();

		receiver->ParsingReceivedMessage(GetParam().text);

		EXPECT_EQ(mode, role);
		EXPECT_EQ(status(), own);
		EXPECT_EQ(count(), 3);
		EXPECT_EQ(velarix::loadShared(g_specialAsking), 1);
		EXPECT_FALSE(running);
		EXPECT_THAT(events::all(), ElementsAreArray(GetParam().logged));
	}
};

TEST_P(MalformedHeartbeat, ChangesNothing)
{
	configureRole("1");
	programRuns(true);
	for (const MODE role : {1, 2, 0, 3})
	{
		for (const std::int32_t own : {1, 0, 7})
		{
			SCOPED_TRACE("role " + std::to_string(role) + " status " + std::to_string(own));
			expectNoChange(role, own);
		}
	}
}

events::List tooShort()
{
	return {"log E CHeartReciver:246 Out of range"};
}

events::List wrongPrefix(const std::string& prefix)
{
	return {"log D CHeartReciver:249 szTmp[process] szPreFix[" + prefix + "]",
	        "log D CHeartReciver:252 preFix unknown: [" + prefix + "]"};
}

std::vector<Malformed> malformedTexts()
{
	// clang-format off
	return {
	    // name                          text                              logged
	    {"Empty",                        "",                               tooShort()},
	    {"PrefixOnly",                   "/process/",                      tooShort()},
	    {"FiveFields",                   "/process/1/1/x/",                tooShort()},
	    {"NoLeadingSlash",               "process/1/1/x/0/",               tooShort()},
	    {"ShortWithAWrongPrefix",        "/proc/1/1/x/",                   tooShort()},
	    {"OneLetterMissing",             "/proces/1/1/x/0/",               wrongPrefix("proces")},
	    {"EmptyPrefix",                  "//1/1/x/0/",                     wrongPrefix("")},
	    {"BlankBeforeThePrefix",         "/ process/1/1/x/0/",             wrongPrefix(" process")},
	    {"AnotherLastLetter",            "/procesX/1/1/x/0/",              wrongPrefix("procesX")},
	    {"AskingSlaveOfAWrongPrefix",    "/proc/0/2/20240131235959/1/",    wrongPrefix("proc")},
	};
	// clang-format on
}

INSTANTIATE_TEST_SUITE_P(Text, MalformedHeartbeat, testing::ValuesIn(malformedTexts()),
                         [](const testing::TestParamInfo<Malformed>& text) { return text.param.name; });

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

} // namespace
