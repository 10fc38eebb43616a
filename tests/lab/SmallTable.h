/// A table of expectations with two cells.
#pragma once

namespace velarix::lab
{

inline constexpr const char* smallTable =
    "path | asked | 2*beat | 2*count+wait | line | takes over: the partner asks # why\n"
    "\n"
    "kill/a | a | program-kill:a | b owner owner 1 0 asked | - | - | a note\n"
    "cut | a | communication-cut | a+b any a+b * * * log=differs "
    "| communication-cut | a a a 1 two -\n"
    "chaos | reboot deaf\n"
    "short | cut\n";

} // namespace velarix::lab
