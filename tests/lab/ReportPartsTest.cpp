/// What the reports of many pairs are made of: tables, whole files, and reports
/// that are read again.

#include <filesystem>

#include <unistd.h>

#include <gtest/gtest.h>

#include "lab/campaigns/matrix/Report.h"
#include "lab/core/Files.h"
#include "lab/core/Lab.h"
#include "lab/tables/Table.h"

namespace velarix::lab
{

namespace
{

/// A directory of its own, gone in the end.
class Folder
{
public:
	Folder() : m_path(std::filesystem::temp_directory_path() / ("velarix-report-" + std::to_string(::getpid())))
	{
		std::filesystem::create_directories(m_path);
	}
	Folder(const Folder&) = delete;
	Folder& operator=(const Folder&) = delete;
	Folder(Folder&&) = delete;
	Folder& operator=(Folder&&) = delete;
	~Folder() { std::filesystem::remove_all(m_path); }

	std::filesystem::path file(const std::string& name) const { return m_path / name; }

private:
	std::filesystem::path m_path;
};

std::string messageOf(const std::function<void()>& call)
{
	try
	{
		call();
		return "";
	}
	catch (const LabError& error)
	{
		return error.what();
	}
}

Expectations oneCell()
{
	return parseExpectations("path | asked | 2*beat | 2*count+wait | line | takes over: the partner asks\n"
	                         "kill/a | a | program-kill:a | b owner owner 1 0 asked | - | - | a note\n"
	                         "kill/b | b | program-kill:b | a owner owner 1 0 asked | - | -\n"
	                         "chaos | reboot\n"
	                         "short | kill/a\n");
}

RunRecord runOf(const std::string& cell)
{
	RunRecord record;
	record.cell = cell;
	record.run = 1;
	record.legs.resize(1);
	record.legs[0].outage = Millis(12345);
	record.legs[0].owner = "b";
	record.legs[0].steady = true;
	record.differences = {"fault: something"};
	return record;
}

} // namespace

TEST(Tables, AlignColumnsAndLeaveNoBlanksAtTheEnd)
{
	EXPECT_EQ(aligned({"a", "long title"}, {{"longer", "x"}, {"", "y"}}), "a       long title\n"
	                                                                      "longer  x\n"
	                                                                      "        y\n");
	EXPECT_EQ(markdownTable({"a", "b"}, {{"1", "2"}}), "| a | b |\n|---|---|\n| 1 | 2 |\n");
}

TEST(Tables, TallyCountsOnlyWhereValuesDiffer)
{
	EXPECT_EQ(tally({}), "-");
	EXPECT_EQ(tally({"b", "b"}), "b");
	EXPECT_EQ(tally({"b", "a", "b"}), "a 1, b 2");
}

TEST(Files, AreReadAndWrittenWhole)
{
	const Folder folder;
	const std::filesystem::path path = folder.file("text");
	EXPECT_EQ(contentIfAny(path), "");
	EXPECT_EQ(messageOf([&] { contentOf(path); }), "cannot read " + path.string() + ": No such file or directory");
	writeFile(path, "one\ntwo");
	EXPECT_EQ(contentOf(path), "one\ntwo");
	writeFile(path, "");
	EXPECT_EQ(contentOf(path), "");
	EXPECT_EQ(contentIfAny(path), "");
	EXPECT_EQ(messageOf([&] { writeFile(folder.file("no/such/place"), "x"); }),
	          "cannot write " + folder.file("no/such/place").string() + ": No such file or directory");
	EXPECT_EQ(messageOf([] { writeFile("/dev/full", "x"); }), "cannot write /dev/full: No space left on device");
}

TEST(ReportRead, AgainSaysTheSameInEveryForm)
{
	MatrixResults results;
	results.expectations = oneCell();
	results.cells = chosenCells(results.expectations, {"kill/a"});
	results.times.pair.interval = 3;
	results.times.slack = Millis(777);
	results.seed = 18446744073709551615U;
	results.jobs = 9;
	results.machine = "a machine of the past";
	results.records = {runOf("kill/a")};
	const MatrixResults copy = matrixFrom(toJson(results), oneCell());
	EXPECT_EQ(toJson(copy), toJson(results));
	EXPECT_EQ(toText(copy), toText(results));
	EXPECT_EQ(toMarkdown(copy), toMarkdown(results));
	EXPECT_NE(toText(copy).find("a machine of the past"), std::string::npos);
}

TEST(ReportRead, ForeignTextsAndUnknownCellsAreRefused)
{
	EXPECT_NE(messageOf([] { matrixFrom("{}", oneCell()); }).find("this is no report of a matrix: "),
	          std::string::npos);
	EXPECT_NE(messageOf([] { matrixFrom("nonsense", oneCell()); }).find("this is no report of a matrix: "),
	          std::string::npos);
	MatrixResults results;
	results.records = {runOf("earthquake")};
	EXPECT_EQ(messageOf([&] { matrixFrom(toJson(results), oneCell()); }),
	          "the table of expectations has no cell \"earthquake\"");
}

} // namespace velarix::lab
