/// What the tests of the operator's program share: a directory that stands for a
/// node's disk, the program run inside the test, golden files.
#pragma once

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>

#include "FakeHost.h"
#include "LogTestSupport.h"
#include "RowName.h"
#include "inspect/Paths.h"

using testing::AllOf, testing::Contains, testing::ElementsAre, testing::EndsWith, testing::HasSubstr;
using testing::IsEmpty, testing::Not, testing::SizeIs, testing::StartsWith;

/// What one run of the program gave.
struct Outcome
{
	int code = -1;
	std::string out;
	std::string err;
};

/// A test with a fresh machine and a fresh directory, removed at its end.
class CtlTest : public testing::Test
{
protected:
	CtlTest();
	~CtlTest() override;

	/// @return the directory
	const std::filesystem::path& root() const { return m_root; }

	/// @return an absolute path of the node, below the directory
	std::filesystem::path below(const std::string& absolute) const;

	/// Writes a file below the directory and makes the folders above it.
	std::filesystem::path write(const std::string& absolute, const std::string& text) const;

	/// Makes a file executable.
	void executable(const std::string& absolute, const std::string& text = "\x7f"
	                                                                       "ELF") const;

	/// What a sound node has on its disk besides settings.
	void makeDisk() const;

	/// Runs the program with the clock at `now`; no "--root" is added.
	Outcome run(const std::vector<std::string>& arguments) const;

	/// As run, with "--root" the directory.
	Outcome runBelow(std::vector<std::string> arguments) const;

	/// @return the text with the directory's name taken out of it
	std::string anonymous(std::string text) const;

	/// 2026-03-01 12:00:00 UTC unless the test changes it, also while the program runs.
	std::chrono::system_clock::time_point now;
	/// What standard output is.
	bool terminal = false;
	bool colour = false;
	/// The running system's unless the test changes them or gives "--root".
	velarix::inspect::Paths paths;

	/// What the program may ask; null when nobody is there.
	std::istream* in = nullptr;

private:
	std::filesystem::path m_root;
	/// The caller's.
	const mode_t m_mask = ::umask(022);
};

/// @return the whole file
/// @throws std::runtime_error it cannot be read
std::string readFile(const std::filesystem::path& path);

/// @return a figure of this process, as "VmRSS:", in kB
long memory(const std::string& name);

/// @return what stands between `before` and the next `after`, wherever that is
std::set<std::string> allBetween(const std::string& text, const std::string& before, const std::string& after);

/// Expects the text to be that of the golden file tests/ctl/golden/NAME.
/// VELARIX_GOLDEN=write in the environment writes the file instead and fails.
void expectGolden(const std::string& name, const std::string& text);
