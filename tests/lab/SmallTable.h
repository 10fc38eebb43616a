/// A table of expectations with two cells.
#pragma once

namespace velarix::lab
{

inline constexpr const char* smallTable = R"(
paths = [ { name = "asked", before = "2*beat", after = "2*count+wait", decision = "takes over: the partner asks" } ] # why
cells = [
  { name = "kill/a", master = "a", inject = ["program-kill:a"], during = { owner = "b", answer = "owner", programs = "owner", moves_max = 1, via = "asked" }, note = "a note" },
  { name = "cut", master = "a", inject = ["communication-cut"], during = { owner = "a+b", moves_max = inf, split_brain_max = "for good", via = "unbounded", log_differs = true }, repaired = { owner = "a", moves_max = 1, split_brain_max = "two" } },
]
chaos = ["reboot", "deaf"]
short = ["cut"]
)";

} // namespace velarix::lab
