#undef NDEBUG // the C library declares its report function only without it
#include <cassert>

#include "velarix/fatal.h"
#include "velarix/velarix.h"

namespace velarix
{

void fatal(const char* expression, const char* source, unsigned line, const char* function)
{
	__assert_fail(expression, source, line, function);
}

} // namespace velarix
