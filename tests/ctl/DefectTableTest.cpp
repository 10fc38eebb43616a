// Every fault that settings files can have, and what is found: the cases of defects.txt. Those of
// the three commands are in TrialTableTest.cpp.

#include <ctime>

#include "CheckTest.h"
#include "RowName.h"
#include "ctl/check/Checks.h"

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
	const auto place = [&](const Finding& finding)
	{ return (finding.file == other ? "b:" : "") + std::to_string(finding.line); };
	EXPECT_EQ(::shortForms(report, place), GetParam().expected);
}

/// Settings of up to a megabyte.
class LargeSettings : public CheckTest
{
protected:
	/// @return the seconds of processor time that the sound settings take with so many lines of each kind behind them
	double timeWith(std::size_t number) const
	{
		std::string text = joined(lines);
		for (std::size_t i = 0; i < number; ++i)
		{
			text += "[SECTION" + std::to_string(i) + "]\nUNKNOWN = 1\n[AGENT]\nMODE = 1\n";
		}
		const CheckRequest request{.file = write("/large.ini", text), .filesOnly = true};
		return secondsOf([&] { EXPECT_EQ(found(request).size(), 2 * number + 1); });
	}

	double timeOfFolders(std::size_t number)
	{
		std::string path = "/";
		for (std::size_t i = 0; i < number; ++i)
		{
			path += "a/";
		}
		setKey(lines, "PROCESS_PATH1", path + "server");
		return secondsOf([&] { reportOf(parsed(), [](Findings& findings) { checks::trust(findings, Paths()); }); });
	}

private:
	static double secondsOf(const std::function<void()>& act)
	{
		const std::clock_t before = std::clock();
		act();
		return static_cast<double>(std::clock() - before) / CLOCKS_PER_SEC;
	}
};

TEST_F(LargeSettings, TakeNoLongerThanTheyAreLong)
{
	dropKey(lines, "PURGEAGE");
	std::ranges::replace(lines, std::string("[LOG]"), std::string("[LGO]"));
	// Eight times as much; by the square it would be 64 times.
	const double few = timeWith(2000);
	EXPECT_LT(timeWith(16'000), 16 * few);
}

TEST_F(LargeSettings, MayHaveAPathOfThousandsOfFolders)
{
	// Milliseconds; by the square it would be seconds.
	EXPECT_LT(timeOfFolders(8000), 1);
}

TEST_F(LargeSettings, MayHaveALineOfThem)
{
	std::string zero = "0";
	while (zero.size() < 400'000)
	{
		zero += ",000";
	}
	setKey(lines, "HEART_BEAT_INTERVAL", zero);
	EXPECT_THAT(found(), Contains(StartsWith("error zero-time ")));
	setKey(lines, "HEART_BEAT_INTERVAL", zero + ",0");
	EXPECT_THAT(found(), Contains(StartsWith("error comma-in-number ")));
}

TEST_F(LargeSettings, MayHaveAnAddressThatIsNone)
{
	setKey(lines, "VIRTUAL_IP", std::string(40'000, '1'));
	EXPECT_THAT(found(), ElementsAre(StartsWith("error not-an-address ")));
}

INSTANTIATE_TEST_SUITE_P(Defects, DefectTable, testing::ValuesIn(casesOf(VELARIX_CTL_TABLES "/defects.txt")),
                         rowName<SettingsCase>);

} // namespace
