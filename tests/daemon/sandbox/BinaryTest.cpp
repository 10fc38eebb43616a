// What the linked program needs from the system that it is installed on.

#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ToolOutput.h"

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

namespace
{

/// @return what `tool` prints about the daemon's program
std::string report(const std::string& tool)
{
	return outputOf(tool + " " + VELARIX_BINARY);
}

TEST(Binary, NeedsTheSecureSocketLibraryThoughItCallsNothingOfIt)
{
	EXPECT_THAT(report("readelf -dW"), ContainsRegex("NEEDED[^\n]*\\[libPocoNetSSL\\.so"));
}

TEST(Binary, FindsEveryLibraryItNeeds)
{
	const std::string libraries = report("ldd");
	EXPECT_THAT(libraries, HasSubstr("libPocoFoundation.so"));
	EXPECT_THAT(libraries, HasSubstr("libPocoNetSSL.so"));
	EXPECT_THAT(libraries, Not(HasSubstr("not found")));
}

TEST(Binary, LooksForNoLibraryInABuildDirectory)
{
	EXPECT_THAT(report("readelf -dW"), Not(ContainsRegex("RPATH|RUNPATH")));
}

} // namespace
