#include "keeper/Runtime.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <system_error>

#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "keeper/Settings.h"

namespace velarix::keeper
{

namespace
{

std::string pathOf(const std::string& program, const char* suffix)
{
	return std::string(kRuntimeDirectory) + "/" + program + suffix;
}

struct flock lockOf(Part part)
{
	struct flock lock = {};
	lock.l_type = F_WRLCK;
	lock.l_whence = SEEK_SET;
	lock.l_start = static_cast<off_t>(part);
	lock.l_len = 1;
	return lock;
}

} // namespace

void makeRuntimeDirectory()
{
	if (::mkdir(kRuntimeDirectory, 0755) != 0 && errno != EEXIST)
	{
		throw std::system_error(errno, std::generic_category(), kRuntimeDirectory);
	}
}

Descriptor takeLock(const std::string& program, Part part)
{
	// For root alone: whoever may read it could lock it.
	const std::string path = pathOf(program, ".lock");
	Descriptor file(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
	if (!file)
	{
		throw std::system_error(errno, std::generic_category(), path);
	}
	const struct flock lock = lockOf(part);
	return ::fcntl(file.get(), F_SETLK, &lock) == 0 ? std::move(file) : Descriptor();
}

pid_t holderOf(const std::string& program, Part part)
{
	const Descriptor file(::open(pathOf(program, ".lock").c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
	struct flock lock = lockOf(part);
	const bool held = file && ::fcntl(file.get(), F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
	return held ? lock.l_pid : 0;
}

LivingProcess::LivingProcess(const std::string& program, Part part) : m_pid(holderOf(program, part))
{
	if (m_pid > 0)
	{
		m_descriptor = Descriptor(static_cast<int>(::syscall(SYS_pidfd_open, m_pid, 0)));
	}
	// Between the two looks the number may have become another process's.
	if (m_descriptor && holderOf(program, part) != m_pid)
	{
		m_descriptor.close();
	}
}

void LivingProcess::signal(int number) const
{
	::syscall(SYS_pidfd_send_signal, m_descriptor.get(), number, nullptr, 0);
}

bool LivingProcess::waitForEnd(Millis limit) const
{
	pollfd waiting{m_descriptor.get(), POLLIN, 0};
	const Millis end = now() + limit;
	for (Millis left = limit; left >= 0; left = end - now())
	{
		if (::poll(&waiting, 1, static_cast<int>(left)) > 0)
		{
			return true;
		}
	}
	return false;
}

void writeState(const std::string& program, const Fields& fields)
{
	std::string text;
	for (const auto& [key, value] : fields)
	{
		text.append(key).append("=").append(value).append("\n");
	}
	const std::string made = pathOf(program, ".new");
	const Descriptor file(::open(made.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644));
	if (file && ::write(file.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size()))
	{
		static_cast<void>(std::rename(made.c_str(), pathOf(program, ".state").c_str()));
	}
}

Fields readState(const std::string& program, const std::string& directory)
{
	std::ifstream file(directory + "/" + program + ".state");
	Fields fields;
	for (std::string line; std::getline(file, line);)
	{
		if (const std::size_t equals = line.find('='); equals != std::string::npos)
		{
			fields.emplace_back(line.substr(0, equals), line.substr(equals + 1));
		}
	}
	return fields;
}

void removeState(const std::string& program)
{
	::unlink(pathOf(program, ".state").c_str());
}

std::string valueOf(const Fields& fields, const std::string& key)
{
	const auto found = std::ranges::find(fields, key, &Fields::value_type::first);
	return found == fields.end() ? std::string() : found->second;
}

std::vector<TargetState> targetsOf(const Fields& fields)
{
	constexpr std::string_view kTarget = "target.";
	std::vector<TargetState> targets;
	for (const auto& [key, value] : fields)
	{
		if (key.starts_with(kTarget))
		{
			const std::size_t blank = std::min(value.find(' '), value.size());
			targets.push_back(
			    {key.substr(kTarget.size()), value.substr(0, blank), std::strtoll(value.c_str() + blank, nullptr, 10)});
		}
	}
	return targets;
}

AddressWatch::AddressWatch() : m_inotify(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK))
{
	if (!m_inotify || ::inotify_add_watch(m_inotify.get(), kRuntimeDirectory, IN_MOVED_TO | IN_DELETE) < 0)
	{
		throw std::system_error(errno, std::generic_category(), "inotify");
	}
}

Fields AddressWatch::look()
{
	std::array<char, 4096> discarded{};
	while (::read(m_inotify.get(), discarded.data(), discarded.size()) > 0)
	{
	}
	m_holder.emplace(kAddressProgram, Part::worker);
	// What a holder has left that was killed does not count.
	Fields fields = readState(kAddressProgram);
	return *m_holder && valueOf(fields, "pid") == std::to_string(m_holder->pid()) ? std::move(fields) : Fields();
}

} // namespace velarix::keeper
