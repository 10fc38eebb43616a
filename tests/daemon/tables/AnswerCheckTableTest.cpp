// A slave that hears a master looks whether its own ask was answered. The two
// halves differ on purpose: with the status NOT OK an ask stays pending while the
// master does not answer, and the texts name the partner as slave.
#include "PendingAskTable.h"

namespace
{

class AnswerCheck : public PendingAskTable
{
};

TEST_P(AnswerCheck, Decides)
{
	expectAsWritten("1");
	EXPECT_EQ(status(), 1);
}

const char kOK[] = "log D CHeartReciver:287 My NetWork Status: OK MY:SLAVE PARTNER:MASTER OK";
const char kOKField[] = "log D CHeartReciver:350 szTmp[1] szPartnerProcessRunning[]";
const char kOKField0[] = "log D CHeartReciver:350 szTmp[1] szPartnerProcessRunning[0]";
const char kOKField01[] = "log D CHeartReciver:350 szTmp[1] szPartnerProcessRunning[01]";
const char kOKFieldBlank1[] = "log D CHeartReciver:350 szTmp[1] szPartnerProcessRunning[ 1]";
const char kOKField1[] = "log D CHeartReciver:350 szTmp[1] szPartnerProcessRunning[1]";
const char kOKField10[] = "log D CHeartReciver:350 szTmp[1] szPartnerProcessRunning[10]";

const char kNot[] = "log D CHeartReciver:329 My NetWork Status: NOT OK MY:SLAVE PARTNER:MASTER OK";
const char kNotField[] = "log D CHeartReciver:376 szTmp[1] szPartnerProcessRunning[]";
const char kNotField0[] = "log D CHeartReciver:376 szTmp[1] szPartnerProcessRunning[0]";
const char kNotField01[] = "log D CHeartReciver:376 szTmp[1] szPartnerProcessRunning[01]";
const char kNotFieldBlank1[] = "log D CHeartReciver:376 szTmp[1] szPartnerProcessRunning[ 1]";
const char kNotField1[] = "log D CHeartReciver:376 szTmp[1] szPartnerProcessRunning[1]";
const char kNotField10[] = "log D CHeartReciver:376 szTmp[1] szPartnerProcessRunning[10]";

std::string waitOK(const std::string& shown)
{
	return "log D CHeartReciver:363 My NetWork Status: OK MY:SLAVE PARTNER:MASTER Special ask <-- answer wait " + shown;
}

std::string doneOK(const std::string& shown)
{
	return "log D CHeartReciver:368 My NetWork Status: OK MY:SLAVE PARTNER:MASTER Special ask <-- answer OK " + shown;
}

std::string waitNot(const std::string& shown)
{
	return "log D CHeartReciver:384 My NetWork Status: NOT OK MY:SLAVE PARTNER:SLAVE Special ask <-- answer wait " +
	       shown;
}

std::string doneNot(const std::string& shown)
{
	return "log D CHeartReciver:389 My NetWork Status: NOT OK MY:SLAVE PARTNER:SLAVE Special ask <-- answer OK " +
	       shown;
}

std::vector<PendingAskRow> rows()
{
	// clang-format off
	return {
	    // name                            status ask  asking count  role asking count  steps
	    {"OKNoAnswerEndsTheAsk",              1, "0",    1,     0,    2,      0,     0,  {kOK, kOKField0}},
	    {"OKNoAnswerLeavesTheCount",          1, "0",    1,     3,    2,      0,     3,  {kOK, kOKField0}},
	    {"OKEmptyFieldEndsTheAsk",            1, "",     1,     2,    2,      0,     2,  {kOK, kOKField}},
	    {"OKBlankBeforeTheOneEndsTheAsk",     1, " 1",   1,     1,    2,      0,     1,  {kOK, kOKFieldBlank1}},
	    {"OKZeroBeforeTheOneEndsTheAsk",      1, "01",   1,     1,    2,      0,     1,  {kOK, kOKField01}},
	    {"OKNoAnswerWithoutAnAsk",            1, "0",    0,     2,    2,      0,     2,  {kOK, kOKField0}},
	    {"OKNoAnswerClearsAStrangeValue",     1, "0",    2,     2,    2,      0,     2,  {kOK, kOKField0}},
	    {"OKAnswerWithoutAnAsk",              1, "1",    0,     2,    2,      0,     2,  {kOK, kOKField1}},
	    {"OKAnswerToAStrangeValue",           1, "1",    2,     3,    2,      2,     3,  {kOK, kOKField1}},
	    {"OKFirstAnswer",                     1, "1",    1,     0,    2,      1,     1,  {kOK, kOKField1,  waitOK("[1/3]")}},
	    {"OKSecondAnswer",                    1, "1",    1,     1,    2,      1,     2,  {kOK, kOKField1,  waitOK("[2/3]")}},
	    {"OKThirdAnswer",                     1, "1",    1,     2,    2,      1,     3,  {kOK, kOKField1,  waitOK("[3/3]")}},
	    {"OKFourthAnswerEndsTheAsk",          1, "1",    1,     3,    2,      0,     0,  {kOK, kOKField1,  doneOK("[4/4]")}},
	    {"OKFifthAnswerEndsTheAsk",           1, "1",    1,     4,    2,      0,     0,  {kOK, kOKField1,  doneOK("[5/4]")}},
	    {"OKTenIsAnAnswer",                   1, "10",   1,     0,    2,      1,     1,  {kOK, kOKField10, waitOK("[1/3]")}},
	    {"NotNoAnswerKeepsTheAsk",            0, "0",    1,     0,    2,      1,     0,  {kNot, kNotField0}},
	    {"NotNoAnswerKeepsTheCount",          0, "0",    1,     3,    2,      1,     3,  {kNot, kNotField0}},
	    {"NotEmptyFieldKeepsTheAsk",          0, "",     1,     2,    2,      1,     2,  {kNot, kNotField}},
	    {"NotBlankBeforeTheOneKeepsTheAsk",   0, " 1",   1,     1,    2,      1,     1,  {kNot, kNotFieldBlank1}},
	    {"NotZeroBeforeTheOneKeepsTheAsk",    0, "01",   1,     1,    2,      1,     1,  {kNot, kNotField01}},
	    {"NotNoAnswerWithoutAnAsk",           0, "0",    0,     2,    2,      0,     2,  {kNot, kNotField0}},
	    {"NotNoAnswerKeepsAStrangeValue",     0, "0",    2,     2,    2,      2,     2,  {kNot, kNotField0}},
	    {"NotAnswerWithoutAnAsk",             0, "1",    0,     2,    2,      0,     2,  {kNot, kNotField1}},
	    {"NotAnswerToAStrangeValue",          0, "1",    2,     3,    2,      2,     3,  {kNot, kNotField1}},
	    {"NotFirstAnswer",                    0, "1",    1,     0,    2,      1,     1,  {kNot, kNotField1,  waitNot("[1/3]")}},
	    {"NotSecondAnswer",                   0, "1",    1,     1,    2,      1,     2,  {kNot, kNotField1,  waitNot("[2/3]")}},
	    {"NotThirdAnswer",                    0, "1",    1,     2,    2,      1,     3,  {kNot, kNotField1,  waitNot("[3/3]")}},
	    {"NotFourthAnswerEndsTheAsk",         0, "1",    1,     3,    2,      0,     0,  {kNot, kNotField1,  doneNot("[4/3]")}},
	    {"NotFifthAnswerEndsTheAsk",          0, "1",    1,     4,    2,      0,     0,  {kNot, kNotField1,  doneNot("[5/3]")}},
	    {"NotTenIsAnAnswer",                  0, "10",   1,     0,    2,      1,     1,  {kNot, kNotField10, waitNot("[1/3]")}},
	    {"StatusSevenKeepsTheAsk",            7, "0",    1,     1,    2,      1,     1,  {kNot, kNotField0}},
	    {"StatusSevenCountsTheAnswer",        7, "1",    1,     1,    2,      1,     2,  {kNot, kNotField1,  waitNot("[2/3]")}},
	};
	// clang-format on
}

INSTANTIATE_TEST_SUITE_P(Table, AnswerCheck, testing::ValuesIn(rows()),
                         [](const testing::TestParamInfo<PendingAskRow>& row) { return row.param.name; });

} // namespace
