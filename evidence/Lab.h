/// What the comparisons are built on: everything here speaks of the lab's hosts, faults and
/// measures without naming the lab each time.
#pragma once

namespace velarix::lab
{
}

namespace velarix::evidence
{

using namespace lab;

} // namespace velarix::evidence
