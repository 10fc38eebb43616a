/// The one way for tests to wait for something that happens elsewhere.
#pragma once

#include <chrono>
#include <functional>
#include <string>

#include <gtest/gtest.h>

/// Asks `predicate` every few milliseconds until it is true.
/// @param limit    when to give up
/// @param what     what is awaited, for the failure's text
/// @param lastSeen describes the state for the failure's text; may be empty
/// @return success, or a failure that names `what` and the last state seen
testing::AssertionResult waitFor(const std::function<bool()>& predicate, std::chrono::milliseconds limit,
                                 const std::string& what, const std::function<std::string()>& lastSeen = {});
