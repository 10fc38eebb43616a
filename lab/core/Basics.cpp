#include "lab/core/Basics.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace velarix::lab
{

const char* nameOf(HostId host)
{
	switch (host)
	{
	case HostId::a:
		return "a";
	case HostId::b:
		return "b";
	case HostId::gateway:
		return "gateway";
	case HostId::client:
		return "client";
	}
	return "?";
}

std::string nodeText(HostId node)
{
	return std::string("node ") + nameOf(node);
}

std::optional<HostId> hostNamed(std::string_view name)
{
	for (const HostId host : allHosts)
	{
		if (name == nameOf(host))
		{
			return host;
		}
	}
	return std::nullopt;
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

std::chrono::system_clock::time_point LabClock::wallAt(Millis time) const
{
	return m_wallStart + time;
}

} // namespace velarix::lab
