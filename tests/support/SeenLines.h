/// What the tests made the daemon say, for the comparison with docs/log-messages.md.
#pragma once

#include <string>

namespace seenlines
{

/// Every log line and fatal report of this process and of its forks is appended to
/// $VELARIX_SEEN_LINES/`program`, which is made in any case; without that variable
/// nothing is kept. To be called before the sandbox is entered.
void keepFor(const std::string& program);

} // namespace seenlines
