#include "lab/core/Basics.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <optional>
#include <system_error>
#include <thread>

#include <sys/mman.h>
#include <unistd.h>

namespace velarix::lab
{

const char* nameOf(HostId host)
{
	static constexpr std::array<const char*, 5> names{"a", "b", "gateway", "client", "third"};
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

namespace
{

constexpr Millis pollPause{10};
constexpr Millis observerPause{250};

} // namespace

bool Wait::until(const std::function<bool()>& holds) const
{
	const LabClock clock;
	Millis nextReport{0};
	for (;;)
	{
		if (holds())
		{
			return true;
		}
		const Millis elapsed = clock.now();
		if (elapsed >= limit)
		{
			break;
		}
		if (observer && elapsed >= nextReport)
		{
			observer(*this, elapsed);
			nextReport = elapsed + observerPause;
		}
		std::this_thread::sleep_for(pollPause);
	}
	std::cerr << "gave up waiting for " + what + " after " + secondsText(limit) +
	                 (seen ? "; last seen: " + seen() : std::string()) + "\n";
	return false;
}

bool waitFor(const std::function<bool()>& holds, Millis limit, const std::string& what,
             const std::function<std::string()>& seen)
{
	return Wait{what, limit, seen, {}}.until(holds);
}

namespace
{

std::optional<std::string> readIfOpen(const std::filesystem::path& path)
{
	std::ifstream stream(path, std::ios::binary);
	if (!stream)
	{
		return std::nullopt;
	}
	return std::string(std::istreambuf_iterator<char>(stream), {});
}

[[noreturn]] void fail(const std::string& what, const std::filesystem::path& path)
{
	throw LabError("cannot " + what + " " + path.string() + ": " + std::generic_category().message(errno));
}

} // namespace

std::string contentIfAny(const std::filesystem::path& path)
{
	const std::optional<std::string> content = readIfOpen(path);
	if (!content && errno != ENOENT)
	{
		fail("read", path);
	}
	return content.value_or("");
}

std::string contentOf(const std::filesystem::path& path)
{
	const std::optional<std::string> content = readIfOpen(path);
	if (!content)
	{
		fail("read", path);
	}
	return *content;
}

Descriptor fileInMemory(const std::string& text)
{
	Descriptor made(::memfd_create("lab", MFD_CLOEXEC));
	if (!made || ::pwrite(made.get(), text.data(), text.size(), 0) != static_cast<ssize_t>(text.size()))
	{
		throwErrno("cannot make a file in memory");
	}
	return made;
}

std::string contentOf(const Descriptor& file)
{
	return contentOf(std::filesystem::path("/proc/self/fd/" + std::to_string(file.get())));
}

long timesIn(const std::filesystem::path& path, const std::string& text)
{
	const std::string content = contentIfAny(path);
	long times = 0;
	for (std::size_t at = content.find(text); at != std::string::npos; at = content.find(text, at + text.size()))
	{
		++times;
	}
	return times;
}

void writeFile(const std::filesystem::path& path, const std::string& text)
{
	std::ofstream stream(path, std::ios::trunc | std::ios::binary);
	stream << text;
	stream.close();
	if (!stream)
	{
		fail("write", path);
	}
}

} // namespace velarix::lab
