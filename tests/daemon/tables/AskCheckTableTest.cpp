// A slave that hears a slave first waits for the result of its own ask, then
// honours the partner's ask or returns to its configured role, here master.
#include "PendingAskTable.h"

namespace
{

class AskCheck : public PendingAskTable
{
};

TEST_P(AskCheck, Decides)
{
	expectAsWritten("2");
	EXPECT_EQ(status(), GetParam().status);
}

const char kOKField[] = "log D CHeartReciver:411 szTmp[1] specialAsk[]";
const char kOKField0[] = "log D CHeartReciver:411 szTmp[1] specialAsk[0]";
const char kOKField01[] = "log D CHeartReciver:411 szTmp[1] specialAsk[01]";
const char kOKFieldBlank1[] = "log D CHeartReciver:411 szTmp[1] specialAsk[ 1]";
const char kOKField1[] = "log D CHeartReciver:411 szTmp[1] specialAsk[1]";
const char kOKField10[] = "log D CHeartReciver:411 szTmp[1] specialAsk[10]";

const char kNotField[] = "log D CHeartReciver:440 szTmp[1] specialAsk[]";
const char kNotField0[] = "log D CHeartReciver:440 szTmp[1] specialAsk[0]";
const char kNotField01[] = "log D CHeartReciver:440 szTmp[1] specialAsk[01]";
const char kNotFieldBlank1[] = "log D CHeartReciver:440 szTmp[1] specialAsk[ 1]";
const char kNotField1[] = "log D CHeartReciver:440 szTmp[1] specialAsk[1]";
const char kNotField10[] = "log D CHeartReciver:440 szTmp[1] specialAsk[10]";

std::string waitOK(const std::string& shown)
{
	return "log D CHeartReciver:403 My NetWork Status: OK  MY:SLAVE PARTNER:SLAVE Special ask <-- waiting result " +
	       shown;
}

std::string waitNot(const std::string& shown)
{
	return "log D CHeartReciver:429 My NetWork Status: NOT OK MY:SLAVE PARTNER:SLAVE Special ask <-- answer wait " +
	       shown;
}

std::string doneNot(const std::string& shown)
{
	return "log D CHeartReciver:434 My NetWork Status: NOT OK MY:SLAVE PARTNER:SLAVE Special ask <-- answer OK " +
	       shown;
}

events::List takeOverOK()
{
	return steps::join(
	    {"log D CHeartReciver:414 special ask: slave -> master", steps::findAddress(), steps::runPrograms()});
}

events::List takeOverNot()
{
	return steps::join(
	    {"log D CHeartReciver:443 special ask: slave -> master", steps::findAddress(), steps::runPrograms()});
}

events::List resetOK()
{
	return steps::join({"log D CHeartReciver:418 My NetWork Status: OK MY:SLAVE PARTNER:SLAVE OK",
	                    "log D CHeartReciver:473 try to process run", steps::runPrograms()});
}

events::List resetNot()
{
	return steps::join({"log D CHeartReciver:447 My NetWork Status: NOT OK MY:SLAVE PARTNER:SLAVE Reset",
	                    "log D CHeartReciver:473 try to process run", steps::runPrograms()});
}

std::vector<PendingAskRow> rows()
{
	using steps::join;
	// clang-format off
	return {
	    // name                             status ask  asking count  role asking count  steps
	    {"OKNobodyAsksResets",                 1, "0",    0,     0,    1,    0,     0,  join({kOKField0, resetOK()})},
	    {"OKResetLeavesTheCount",              1, "0",    0,     2,    1,    0,     2,  join({kOKField0, resetOK()})},
	    {"OKEmptyFieldResets",                 1, "",     0,     0,    1,    0,     0,  join({kOKField, resetOK()})},
	    {"OKBlankBeforeTheOneResets",          1, " 1",   0,     0,    1,    0,     0,  join({kOKFieldBlank1, resetOK()})},
	    {"OKZeroBeforeTheOneResets",           1, "01",   0,     0,    1,    0,     0,  join({kOKField01, resetOK()})},
	    {"OKStrangeValueIsNoAsk",              1, "0",    2,     3,    1,    2,     3,  join({kOKField0, resetOK()})},
	    {"OKPartnersAskIsHonoured",            1, "1",    0,     0,    1,    0,     0,  join({kOKField1, takeOverOK()})},
	    {"OKTenIsAnAsk",                       1, "10",   0,     2,    1,    0,     2,  join({kOKField10, takeOverOK()})},
	    {"OKAskWithAStrangeValueOfItsOwn",     1, "1",    2,     1,    1,    2,     1,  join({kOKField1, takeOverOK()})},
	    {"OKFirstWait",                        1, "0",    1,     0,    2,    1,     1,  {waitOK("[1/3]")}},
	    {"OKSecondWait",                       1, "0",    1,     1,    2,    1,     2,  {waitOK("[2/3]")}},
	    {"OKThirdWait",                        1, "0",    1,     2,    2,    1,     3,  {waitOK("[3/3]")}},
	    {"OKFourthWaitResets",                 1, "0",    1,     3,    1,    0,     0,  join({kOKField0, resetOK()})},
	    {"OKFifthWaitResets",                  1, "0",    1,     4,    1,    0,     0,  join({kOKField0, resetOK()})},
	    {"OKFirstWaitOnAnAskingPartner",       1, "1",    1,     0,    2,    1,     1,  {waitOK("[1/3]")}},
	    {"OKSecondWaitOnAnAskingPartner",      1, "1",    1,     1,    2,    1,     2,  {waitOK("[2/3]")}},
	    {"OKThirdWaitOnAnAskingPartner",       1, "1",    1,     2,    2,    1,     3,  {waitOK("[3/3]")}},
	    {"OKFourthWaitHonoursThePartner",      1, "1",    1,     3,    1,    0,     0,  join({kOKField1, takeOverOK()})},
	    {"NotNobodyAsksResets",                0, "0",    0,     0,    1,    0,     0,  join({kNotField0, resetNot()})},
	    {"NotResetLeavesTheCount",             0, "0",    0,     2,    1,    0,     2,  join({kNotField0, resetNot()})},
	    {"NotEmptyFieldResets",                0, "",     0,     0,    1,    0,     0,  join({kNotField, resetNot()})},
	    {"NotBlankBeforeTheOneResets",         0, " 1",   0,     0,    1,    0,     0,  join({kNotFieldBlank1, resetNot()})},
	    {"NotZeroBeforeTheOneResets",          0, "01",   0,     0,    1,    0,     0,  join({kNotField01, resetNot()})},
	    {"NotStrangeValueIsNoAsk",             0, "0",    2,     3,    1,    2,     3,  join({kNotField0, resetNot()})},
	    {"NotPartnersAskIsHonoured",           0, "1",    0,     0,    1,    0,     0,  join({kNotField1, takeOverNot()})},
	    {"NotTenIsAnAsk",                      0, "10",   0,     2,    1,    0,     2,  join({kNotField10, takeOverNot()})},
	    {"NotAskWithAStrangeValueOfItsOwn",    0, "1",    2,     1,    1,    2,     1,  join({kNotField1, takeOverNot()})},
	    {"NotFirstWait",                       0, "0",    1,     0,    2,    1,     1,  {waitNot("[1/3]")}},
	    {"NotSecondWait",                      0, "0",    1,     1,    2,    1,     2,  {waitNot("[2/3]")}},
	    {"NotThirdWait",                       0, "0",    1,     2,    2,    1,     3,  {waitNot("[3/3]")}},
	    {"NotFourthWaitResets",                0, "0",    1,     3,    1,    0,     0,  join({doneNot("[4/3]"), kNotField0, resetNot()})},
	    {"NotFifthWaitResets",                 0, "0",    1,     4,    1,    0,     0,  join({doneNot("[5/3]"), kNotField0, resetNot()})},
	    {"NotFirstWaitOnAnAskingPartner",      0, "1",    1,     0,    2,    1,     1,  {waitNot("[1/3]")}},
	    {"NotSecondWaitOnAnAskingPartner",     0, "1",    1,     1,    2,    1,     2,  {waitNot("[2/3]")}},
	    {"NotThirdWaitOnAnAskingPartner",      0, "1",    1,     2,    2,    1,     3,  {waitNot("[3/3]")}},
	    {"NotFourthWaitHonoursThePartner",     0, "1",    1,     3,    1,    0,     0,  join({doneNot("[4/3]"), kNotField1, takeOverNot()})},
	    {"StatusSevenResets",                  7, "0",    0,     0,    1,    0,     0,  join({kNotField0, resetNot()})},
	    {"StatusSevenWaits",                   7, "0",    1,     1,    2,    1,     2,  {waitNot("[2/3]")}},
	};
	// clang-format on
}

INSTANTIATE_TEST_SUITE_P(Table, AskCheck, testing::ValuesIn(rows()),
                         [](const testing::TestParamInfo<PendingAskRow>& row) { return row.param.name; });

} // namespace
