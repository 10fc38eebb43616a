// Every fault that settings files can have, and what is found: the cases of defects.txt. Those of
// the three commands are in TrialTableTest.cpp.

#include "CheckTest.h"
#include "RowName.h"

using namespace velarix::ctl;
using namespace velarix::inspect;

namespace
{

class DefectTable : public CheckTest, public testing::WithParamInterface<SettingsCase>
{
};

TEST_P(DefectTable, IsFoundAtItsLine)
{
	std::vector<std::string> partner = soundLines(2);
	bool isPair = false;
	for (const std::string& line : GetParam().lines)
	{
		const bool forOne = line.starts_with("a: ") || line.starts_with("b: ");
		isPair = isPair || forOne;
		change(line.starts_with("b: ") ? partner : lines, line.substr(forOne ? 3 : 0));
	}
	const auto own = write("/a.ini", joined(lines));
	const auto other = write("/b.ini", joined(partner));
	const CheckReport report =
	    check({.file = own, .partner = isPair ? other.string() : "", .filesOnly = true}, Paths(root()));
	std::vector<std::string> found;
	for (const Finding& finding : report.findings)
	{
		expectWhole(finding);
		found.push_back((finding.severity == Severity::error ? "error " : "warning ") + finding.id +
		                (finding.file == other ? " b:" : " ") + std::to_string(finding.line));
	}
	EXPECT_EQ(found, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Defects, DefectTable, testing::ValuesIn(casesOf(VELARIX_CTL_TABLES "/defects.txt")),
                         rowName<SettingsCase>);

} // namespace
