/// Runs pieces of work side by side, each in a process of its own: a lab that
/// fails takes nothing with it, and a lab that hangs can be ended.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Basics.h"

namespace velarix::lab
{

/// What became of one piece of work.
struct ChildResult
{
	std::size_t index = 0; ///< of the work
	std::string text;      ///< what it returned
	std::string problem;   ///< empty when it ended well
};

/// Runs `count` pieces of work, at most `jobs` at a time, in their order. The
/// caller must have no other thread. Children end with it.
/// @param work   runs in the child; what it throws is its problem
/// @param done   runs in the caller, as soon as a piece has ended
/// @param limit  for one piece; one that takes longer is killed
void runInChildren(std::size_t count, int jobs, Millis limit, const std::function<std::string(std::size_t)>& work,
                   const std::function<void(const ChildResult&)>& done);

} // namespace velarix::lab
