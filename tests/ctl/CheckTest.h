/// What the tests of the checks share: a node's disk without a fault.
#pragma once

#include <functional>

#include "CtlTest.h"
#include "SoundSettings.h"
#include "ctl/check/Findings.h"

/// A fault in what a test has, and the findings then: a row of a table.
template <typename Subject> struct FaultRow
{
	const char* name;
	std::vector<std::string> expected;
	void (*change)(Subject&);
};

/// A sound node below the test's directory, which counts as another root; the
/// made-up machine is asked where a test says so.
class CheckTest : public CtlTest
{
protected:
	CheckTest();

	/// @return what is found on that disk, one "SEVERITY ID FILE:LINE" each; the
	///         directory's name is left out of the files
	std::vector<std::string> found(const velarix::ctl::CheckRequest& request) const;
	std::vector<std::string> found() const;

	/// @return the findings of the machine, the disk being the running system's
	std::vector<std::string> foundOnMachine() const;

	/// The settings as if they stood in that file.
	velarix::inspect::SettingsFile parsed(const std::filesystem::path& file = "config.ini") const;

	/// @return what some of the checks alone report of settings
	static velarix::ctl::CheckReport reportOf(const velarix::inspect::SettingsFile& file,
	                                          const std::function<void(velarix::ctl::Findings&)>& checks);

	/// The settings as they are written.
	std::vector<std::string> lines = soundLines();

	std::filesystem::path settings() const;

	/// @return the findings as `found` tells them
	std::vector<std::string> shortForms(const velarix::ctl::CheckReport& report) const;
};
