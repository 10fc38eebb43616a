/// What every file of the lab uses: the hosts' names, time, waiting, whole files as texts, and errors
/// as plain sentences.
#pragma once

#include <array>
#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "inspect/Descriptor.h"

namespace velarix::lab
{

using inspect::Descriptor;
using Millis = std::chrono::milliseconds;

/// The hosts of a lab.
enum class HostId
{
	a,
	b,
	gateway,
	client,
	third ///< belongs to nobody, is on both networks, and comes into being when it is first asked for
};

inline constexpr std::array<HostId, 2> nodes{HostId::a, HostId::b};
/// Those that every lab has.
inline constexpr std::array<HostId, 4> allHosts{HostId::a, HostId::b, HostId::gateway, HostId::client};

/// @return its place in an array by host or by node
constexpr std::size_t indexOf(HostId host)
{
	return static_cast<std::size_t>(host);
}

/// @return "a", "b", "gateway", "client" or "third"
const char* nameOf(HostId host);

/// @return "node a" or "node b"
std::string nodeText(HostId node);

/// @return the one of allHosts of that name; empty when there is none
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

/// The one way the lab and its tests wait: for something to hold, up to a limit, telling what it last saw.
struct Wait
{
	std::string what;
	Millis limit{10000};
	std::function<std::string()> seen{}; ///< renders the state for progress and failure
	/// Called about four times a second with the time since the wait began.
	std::function<void(const Wait&, Millis elapsed)> observer{};

	/// Tries `holds` about every 10 ms.
	/// @return true as soon as it holds; false at the limit, after one line on
	///         standard error with the state last seen
	bool until(const std::function<bool()>& holds) const;
};

using WaitObserver = std::function<void(const Wait&, Millis elapsed)>;

/// Short form of Wait.
bool waitFor(const std::function<bool()>& holds, Millis limit, const std::string& what,
             const std::function<std::string()>& seen = {});

/// @return what the file holds; empty when it is not there
/// @throws LabError when it is there and cannot be read
std::string contentIfAny(const std::filesystem::path& path);

/// @return what the file holds
/// @throws LabError when it cannot be read
std::string contentOf(const std::filesystem::path& path);

/// @return how often the text, which may have several lines, stands in the file; 0 when
///         there is no such file
/// @throws LabError when it is there and cannot be read
long timesIn(const std::filesystem::path& path, const std::string& text);

/// @return a file without a name that holds the text, to be read from its beginning; it ends
///         with the last descriptor
Descriptor fileInMemory(const std::string& text = {});
/// @return all that such a file holds, whoever has written it
std::string contentOf(const Descriptor& file);

/// Replaces what the file holds, or makes it.
/// @throws LabError when that fails, a full disk included
void writeFile(const std::filesystem::path& path, const std::string& text);

} // namespace velarix::lab
