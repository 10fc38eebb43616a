/// Bytes of a log made fit for a terminal and for JSON: an attacker's bytes can
/// be in it.
#pragma once

#include <string>
#include <string_view>

namespace velarix::inspect
{

/// Control characters and what is no UTF-8 become "\x1b"; a line feed becomes
/// "\n", a tabulator "\t".
std::string printable(std::string_view bytes);

} // namespace velarix::inspect
