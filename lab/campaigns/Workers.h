/// Runs pieces of work side by side, each in a process of its own: a lab that
/// fails takes nothing with it, and a lab that hangs can be ended.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "lab/core/Basics.h"

namespace velarix::lab
{

/// What became of one piece of work. It went well when it returned, its text
/// arrived whole, and its process ended with status 0 within the limit.
struct WorkerResult
{
	std::size_t index = 0;          ///< of the work
	std::string text;               ///< what it returned; empty when it did not go well
	std::string problem;            ///< why it did not go well; empty when it did
	std::vector<std::string> parts; ///< what it handed over before, whatever became of it
};

/// Hands a text to the caller while the work goes on.
using HandOver = std::function<void(const std::string& part)>;

using Work = std::function<std::string(std::size_t index, const HandOver& handOver)>;

/// Runs `count` pieces of work, at most `jobs` at a time, in their order. The
/// caller must have no other thread and no other child. Children end with it.
/// @param work   runs in the child; what it throws is its problem
/// @param done   runs in the caller, as soon as a piece has ended
/// @param limit  for one piece; one that takes longer is killed
/// @throws LabError when no process can be made
void runInWorkers(std::size_t count, int jobs, Millis limit, const Work& work,
                  const std::function<void(const WorkerResult&)>& done);

} // namespace velarix::lab
