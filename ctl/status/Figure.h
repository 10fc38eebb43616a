/// One figure of a node's state: what it is, how old that is, or why it is not
/// known. A figure that was reported by a log which can no longer be trusted keeps
/// what was reported last and is not known all the same.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <utility>

namespace velarix::ctl
{

template <typename Value> struct Figure
{
	/// What was reported or seen last.
	std::optional<Value> reported;
	/// When it was reported or seen last.
	std::optional<std::chrono::system_clock::time_point> at;
	/// When it became what it is; empty when that is not known.
	std::optional<std::chrono::system_clock::time_point> since;
	/// Why it is not known; empty for a known figure.
	std::string why;

	bool known() const { return reported.has_value() && why.empty(); }

	/// @return whether it is known and that value
	bool is(const Value& value) const { return known() && *reported == value; }
};

/// A figure that was seen just now.
template <typename Value> Figure<Value> seen(Value value, std::chrono::system_clock::time_point now)
{
	return {std::move(value), now, std::nullopt, {}};
}

template <typename Value> Figure<Value> notKnown(std::string why)
{
	return {std::nullopt, std::nullopt, std::nullopt, std::move(why)};
}

} // namespace velarix::ctl
