/// What every file of the lab uses: the hosts' names, time, and errors as plain sentences.
#pragma once

#include <array>
#include <chrono>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "inspect/Descriptor.h"

namespace velarix::lab
{

using inspect::Descriptor;
using Millis = std::chrono::milliseconds;

/// The four hosts of a lab.
enum class HostId
{
	a,
	b,
	gateway,
	client
};

inline constexpr std::array<HostId, 2> nodes{HostId::a, HostId::b};
inline constexpr std::array<HostId, 4> allHosts{HostId::a, HostId::b, HostId::gateway, HostId::client};

/// @return its place in an array by host or by node
constexpr std::size_t indexOf(HostId host)
{
	return static_cast<std::size_t>(host);
}

/// @return "a", "b", "gateway" or "client"
const char* nameOf(HostId host);

/// @return "node a" or "node b"
std::string nodeText(HostId node);

/// @return the host of that name; empty when there is none
std::optional<HostId> hostNamed(std::string_view name);

/// @return node b for a, node a for b
constexpr HostId otherNode(HostId node)
{
	return node == HostId::a ? HostId::b : HostId::a;
}

constexpr bool isNode(HostId host)
{
	return host == HostId::a || host == HostId::b;
}

// Sets of nodes as the timeline and the records write them: "none", "a", "b", "a+b". Owners of
// the virtual address are the usual case.

/// @return the text for the set of those that are true
inline std::string ownersText(bool a, bool b)
{
	if (a && b)
	{
		return "a+b";
	}
	return a ? "a" : (b ? "b" : "none");
}

/// @return true when the node is one of them
inline bool holds(std::string_view owners, HostId node)
{
	return owners == nameOf(node) || owners == "a+b";
}

/// @return true for "a" and "b"
inline bool isSingle(std::string_view owners)
{
	return owners == "a" || owners == "b";
}

/// @return "12.345 s"
std::string secondsText(Millis time);

/// Something outside the lab's own code is not as it has to be. what() is a
/// sentence for the person at the keyboard.
class LabError : public std::runtime_error
{
public:
	using std::runtime_error::runtime_error;
};

/// This machine or this user cannot have the namespaces a lab is made of.
class NamespacesUnavailable : public LabError
{
public:
	using LabError::LabError;
};

/// @throws LabError "WHAT: reason of errno"
[[noreturn]] void throwErrno(const std::string& what);

/// Milliseconds since the lab was made, on a clock that never jumps.
class LabClock
{
public:
	Millis now() const;

private:
	std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
};

} // namespace velarix::lab
