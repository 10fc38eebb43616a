/// How velarix-lab talks to the supervisor of a pair it keeps running: a request
/// and an answer per connection, on a UNIX socket.
#pragma once

#include <filesystem>
#include <functional>
#include <string>

#include "lab/core/Basics.h"

namespace velarix::lab::program
{

/// Listens at `path`, for root only, and answers every request until `goOn` is false after one,
/// or a signal is readable from `signals`.
/// @throws LabError when it cannot listen there
void serve(const std::filesystem::path& path, int signals, const std::function<std::string(const std::string&)>& answer,
           const std::function<bool()>& goOn);

/// Sends a request and reads the whole answer.
/// @throws LabError when nobody listens at `path` or no answer comes in time
std::string ask(const std::filesystem::path& path, const std::string& request);

} // namespace velarix::lab::program
