// What the linked program needs from the system that it is installed on.

#include <array>
#include <cstdio>
#include <memory>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

namespace
{

struct ClosePipe
{
	void operator()(std::FILE* pPipe) const { ::pclose(pPipe); }
};

/// @return what `tool` prints about the daemon's program
std::string tell(const std::string& tool)
{
	const std::unique_ptr<std::FILE, ClosePipe> pipe(::popen((tool + " " + VELARIX_BINARY).c_str(), "r"));
	std::string text;
	std::array<char, 256> piece{};
	while (std::fgets(piece.data(), static_cast<int>(piece.size()), pipe.get()) != nullptr)
	{
		text += piece.data();
	}
	return text;
}

TEST(Binary, NeedsTheSecureSocketLibraryThoughItCallsNothingOfIt)
{
	EXPECT_THAT(tell("readelf -dW"), ContainsRegex("NEEDED[^\n]*\\[libPocoNetSSL\\.so"));
}

TEST(Binary, FindsEveryLibraryItNeeds)
{
	const std::string libraries = tell("ldd");
	EXPECT_THAT(libraries, HasSubstr("libPocoFoundation.so"));
	EXPECT_THAT(libraries, HasSubstr("libPocoNetSSL.so"));
	EXPECT_THAT(libraries, Not(HasSubstr("not found")));
}

TEST(Binary, LooksForNoLibraryInABuildDirectory)
{
	EXPECT_THAT(tell("readelf -dW"), Not(ContainsRegex("RPATH|RUNPATH")));
}

TEST(Binary, CanBeLoadedAtAnyAddress)
{
	EXPECT_THAT(tell("readelf -hW"), ContainsRegex("Type:[ ]+DYN"));
}

TEST(Binary, HasNoExecutableStack)
{
	EXPECT_THAT(tell("readelf -lW"), ContainsRegex("GNU_STACK[^\n]* RW "));
}

} // namespace
