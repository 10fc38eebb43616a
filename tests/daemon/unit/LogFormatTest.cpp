#include <cstdarg>
#include <cstdio>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "VelarixLog.h"

using testing::ElementsAre;

namespace
{

/// Records the buffer size of every attempt while a test formats.
bool g_recording = false;
std::vector<std::size_t> g_sizes;
/// How many of the next attempts fail, as with a text that cannot be encoded.
int g_failures = 0;

int attempt(char* buffer, std::size_t size, const char* format, va_list arguments);

} // namespace

// An optimising build calls the checked function.
extern "C" int __real_vsnprintf(char* buffer, std::size_t size, const char* format, va_list arguments);
extern "C" int __wrap_vsnprintf(char* buffer, std::size_t size, const char* format, va_list arguments);
extern "C" int __wrap_vsnprintf(char* buffer, std::size_t size, const char* format, va_list arguments)
{
	return attempt(buffer, size, format, arguments);
}
extern "C" int __wrap___vsnprintf_chk(char* buffer, std::size_t size, int flag, std::size_t room, const char* format,
                                      va_list arguments);
extern "C" int __wrap___vsnprintf_chk(char* buffer, std::size_t size, int /*flag*/, std::size_t /*room*/,
                                      const char* format, va_list arguments)
{
	return attempt(buffer, size, format, arguments);
}

namespace
{

int attempt(char* buffer, std::size_t size, const char* format, va_list arguments)
{
	if (g_recording)
	{
		g_sizes.push_back(size);
		if (g_failures > 0)
		{
			--g_failures;
			return -1;
		}
	}
	return __real_vsnprintf(buffer, size, format, arguments);
}

[[gnu::format(printf, 1, 2)]] std::string formatted(const char* format, ...)
{
	g_sizes.clear();
	g_recording = true;
	va_list arguments;
	va_start(arguments, format);
	const std::string text = VelarixLog::varFormat(format, arguments);
	g_recording = false;
	EXPECT_EQ(VelarixLog::varFormat(format, arguments), text) << "the caller's list was used up";
	va_end(arguments);
	return text;
}

TEST(VarFormat, ATextThatFitsNeedsOneAttempt)
{
	EXPECT_EQ(formatted("%s:%d [%5.2f|%-4s|%c|%%|%x]", "a", -7, 3.14159, "b", 'z', 255U), "a:-7 [ 3.14|b   |z|%|ff]");
	EXPECT_THAT(g_sizes, ElementsAre(1024));
	EXPECT_EQ(formatted("ab%ccd", '\0'), "ab"); // a NUL ends the text
	EXPECT_THAT(g_sizes, ElementsAre(1024));
	const std::string text(1023, 'x');
	EXPECT_EQ(formatted("%s", text.c_str()), text);
	EXPECT_THAT(g_sizes, ElementsAre(1024));
	EXPECT_EQ(formatted("%sy", text.c_str()), text + "y");
	EXPECT_THAT(g_sizes, ElementsAre(1024, 1025));
}

TEST(VarFormat, AFailedAttemptDoublesTheBuffer)
{
	g_failures = 3;
	EXPECT_EQ(formatted("%d-%s", 5, "six"), "5-six");
	EXPECT_THAT(g_sizes, ElementsAre(1024, 2048, 4096, 8192));
}

TEST(VarFormat, EveryAttemptBeginsAtTheFirstArgument)
{
	const std::string text(2000, 'y');
	EXPECT_EQ(formatted("%d %s %s %ld", 1, "two", text.c_str(), 4L), "1 two " + text + " 4");
	EXPECT_THAT(g_sizes, ElementsAre(1024, 2009));
}

} // namespace
