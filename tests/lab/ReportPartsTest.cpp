/// What the reports of many pairs are made of: aligned columns and whole files.

#include <filesystem>

#include <unistd.h>

#include <gtest/gtest.h>

#include "lab/core/Files.h"
#include "lab/core/Lab.h"
#include "lab/core/TextTable.h"

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

} // namespace

TEST(Tables, AlignColumnsAndLeaveNoBlanksAtTheEnd)
{
	EXPECT_EQ(aligned({"a", "long title"}, {{"longer", "x"}, {"", "y"}}), "a       long title\n"
	                                                                      "longer  x\n"
	                                                                      "        y\n");
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

} // namespace velarix::lab
