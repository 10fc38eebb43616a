// The protections of the program as it is shipped; builds with a sanitizer come
// without them.

#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

namespace
{

/// @return whether a line of what `tool` prints about the program matches
bool says(const std::string& tool, const std::string& pattern)
{
	return std::system((tool + " " + VELARIX_BINARY + " | grep -qE '" + pattern + "'").c_str()) == 0;
}

TEST(Hardening, TheRelocatedTablesAreReadOnly)
{
	EXPECT_TRUE(says("readelf -lW", "GNU_RELRO"));
}

TEST(Hardening, EverySymbolIsBoundBeforeTheStart)
{
	EXPECT_TRUE(says("readelf -dW", "FLAGS.*BIND_NOW|FLAGS_1.*NOW"));
}

TEST(Hardening, TheStackIsGuarded)
{
	EXPECT_TRUE(says("readelf -sW --dyn-syms", "__stack_chk_fail"));
}

} // namespace
