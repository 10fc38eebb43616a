#include "lab/core/Basics.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace velarix::lab
{

const char* nameOf(HostId host)
{
	static constexpr std::array<const char*, 4> names{"a", "b", "gateway", "client"};
	return names.at(indexOf(host));
}

std::string nodeText(HostId node)
{
	return std::string("node ") + nameOf(node);
}

std::optional<HostId> hostNamed(std::string_view name)
{
	const auto* found = std::ranges::find(allHosts, name, nameOf);
	return found == allHosts.end() ? std::nullopt : std::optional(*found);
}

std::string secondsText(Millis time)
{
	char text[32];
	std::snprintf(text, sizeof text, "%.3f s", static_cast<double>(time.count()) / 1000.0);
	return text;
}

void throwErrno(const std::string& what)
{
	throw LabError(what + ": " + std::strerror(errno));
}

Millis LabClock::now() const
{
	return std::chrono::duration_cast<Millis>(std::chrono::steady_clock::now() - m_start);
}

} // namespace velarix::lab
