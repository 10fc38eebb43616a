/// What options that take seconds accept.
#pragma once

#include <CLI/CLI.hpp>

namespace velarix::ctl
{

/// The library's own range lets "nan" through, which is no number to wait for.
/// @return a check that takes numbers from `least` to `most` alone
CLI::Validator secondsFrom(double least, double most);

} // namespace velarix::ctl
