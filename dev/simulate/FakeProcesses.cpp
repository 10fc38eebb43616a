/// /proc, as the agent counts its programs there.

#include <charconv>
#include <cstdlib>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include "dev/simulate/Programs.h"

using velarix::simulate::Process;
using velarix::simulate::self;
using velarix::simulate::world;

namespace
{

/// One walk through /proc at a time: nothing pauses within.
std::size_t g_next = 0;
dirent g_entry{};
std::string g_status;
constexpr int kStatusFile = 1'000'000'000;

} // namespace

extern "C"
{
	int __real_open64(const char* path, int flags, ...);
	int __real_close(int file);
	ssize_t __real_read(int file, void* buffer, std::size_t size);

	DIR* __wrap_opendir(const char* /*path*/)
	{
		g_next = 0;
		return reinterpret_cast<DIR*>(&g_entry);
	}

	dirent* __wrap_readdir64(DIR* /*pDirectory*/)
	{
		const auto& processes = self().processes;
		while (g_next < processes.size())
		{
			const Process& process = *processes[g_next++];
			if (process.alive || (!process.reaped && process.parent != nullptr))
			{
				g_entry.d_type = DT_DIR;
				*std::to_chars(std::begin(g_entry.d_name), std::end(g_entry.d_name), process.pid).ptr = '\0';
				return &g_entry;
			}
		}
		return nullptr;
	}

	int __wrap_closedir(DIR* /*pDirectory*/)
	{
		return 0;
	}

	int __wrap_open64(const char* path, int flags, int mode)
	{
		constexpr std::string_view kProc = "/proc/";
		if (!std::string_view(path).starts_with(kProc))
		{
			return __real_open64(path, flags, mode);
		}
		const Process& process = *velarix::simulate::processOf(self(), std::atoi(path + kProc.size()));
		const bool named = process.alive && world().now() >= process.visibleAt;
		g_status.assign("Name:\t").append(process.hidden ? "keeper" : named ? process.name.c_str() : "sh").append("\n");
		return kStatusFile;
	}

	/// Descriptors that no kernel has given are above all others.
	int __wrap_close(int file)
	{
		return file >= kStatusFile ? 0 : __real_close(file);
	}

	ssize_t __wrap_read(int file, void* buffer, std::size_t size)
	{
		if (file != kStatusFile)
		{
			return __real_read(file, buffer, size);
		}
		const std::size_t length = g_status.copy(static_cast<char*>(buffer), size);
		g_status.clear();
		return static_cast<ssize_t>(length);
	}

	ssize_t __wrap___read_chk(int file, void* buffer, std::size_t size, std::size_t /*room*/)
	{
		return __wrap_read(file, buffer, size);
	}
}
