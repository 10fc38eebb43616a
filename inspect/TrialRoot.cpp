#include "inspect/TrialRoot.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string_view>
#include <system_error>
#include <vector>

#include <sys/mount.h>
#include <unistd.h>

namespace velarix::inspect::host
{

namespace
{

namespace fs = std::filesystem;

/// The copy is put together here: the directory is everywhere, and what it shows is
/// not wanted in the copy.
constexpr char kStage[] = "/proc";
/// All that the commands may write.
constexpr char kMemory[] = "size=32m,mode=755";
/// A host with many containers has many mounts; commands do not need them.
constexpr std::size_t kMounts = 200;

struct Mount
{
	std::string point;
	/// Its server may not answer, which would hang an overlay.
	bool remote = false;
};

bool isBelow(const std::string& path, std::string_view directory)
{
	return path.starts_with(directory) && (path.size() == directory.size() || path[directory.size()] == '/');
}

/// @return the mounts that are copied, the root directory first
std::vector<Mount> mounts()
{
	constexpr std::array kOwn{"/proc", "/sys", "/dev", "/run"};
	constexpr std::array kRemote{"nfs", "cifs", "smb", "fuse", "9p", "ceph"};
	std::vector<Mount> result{{"/", false}};
	std::ifstream file("/proc/self/mountinfo");
	for (std::string line; std::getline(file, line) && result.size() < kMounts;)
	{
		std::istringstream fields(line);
		Mount mount;
		std::string skipped;
		fields >> skipped >> skipped >> skipped >> skipped >> mount.point;
		const std::size_t dash = line.find(" - ");
		const std::string type = dash == std::string::npos ? "" : line.substr(dash + 3);
		mount.remote = std::ranges::any_of(kRemote, [&](const char* name) { return type.starts_with(name); });
		const bool known = std::ranges::find(result, mount.point, &Mount::point) != result.end();
		const bool own =
		    std::ranges::any_of(kOwn, [&](const char* directory) { return isBelow(mount.point, directory); });
		// A blank in a name is written as "\040".
		if (!known && !own && !type.starts_with("autofs") && mount.point.find('\\') == std::string::npos)
		{
			result.push_back(mount);
		}
	}
	return result;
}

bool bindReadOnly(const std::string& from, const std::string& to)
{
	if (::mount(from.c_str(), to.c_str(), nullptr, MS_BIND, nullptr) != 0)
	{
		return false;
	}
	if (::mount(nullptr, to.c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr) != 0)
	{
		::umount2(to.c_str(), MNT_DETACH);
		return false;
	}
	return true;
}

/// A file system that shows another one and keeps what is written to itself.
bool overlay(const std::string& lower, const std::string& to, std::size_t number)
{
	const std::string layer = std::string(kStage) + "/layer" + std::to_string(number);
	std::error_code error;
	fs::create_directories(layer + "/upper", error);
	fs::create_directories(layer + "/work", error);
	const std::string options = "lowerdir=" + lower + ",upperdir=" + layer + "/upper,workdir=" + layer + "/work";
	return lower.find_first_of(",:") == std::string::npos &&
	       ::mount("overlay", to.c_str(), "overlay", 0, options.c_str()) == 0;
}

/// Its processes alone; of the kernel's switches only those of its own network can be
/// turned, so that "echo b >/proc/sysrq-trigger" does nothing.
bool mountProc(const std::string& point)
{
	const std::string network = point + "/sys/net";
	return ::mount("proc", point.c_str(), "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr) == 0 &&
	       ::mount(network.c_str(), network.c_str(), nullptr, MS_BIND, nullptr) == 0 &&
	       ::mount(nullptr, point.c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr) == 0;
}

/// No disk, no serial line and no watchdog: a fencing command reaches nothing.
bool makeDevices(const std::string& point)
{
	if (::mount("tmpfs", point.c_str(), "tmpfs", MS_NOSUID, "size=1m,mode=755") != 0)
	{
		return false;
	}
	for (const char* name : {"null", "zero", "full", "random", "urandom"})
	{
		const std::string device = point + "/" + name;
		std::ofstream(device).flush();
		if (::mount((std::string("/dev/") + name).c_str(), device.c_str(), nullptr, MS_BIND, nullptr) != 0)
		{
			return false;
		}
	}
	std::error_code error;
	fs::create_symlink("/proc/self/fd", point + "/fd", error);
	fs::create_symlink("/proc/self/fd/1", point + "/stdout", error);
	fs::create_symlink("/proc/self/fd/2", point + "/stderr", error);
	return true;
}

/// What the kernel shows, and a /run with nothing but the directory of locks: the sockets of this machine's services
/// are there, over which a command could restart one of them.
bool mountKernelFiles(const std::string& root)
{
	std::error_code error;
	fs::create_directory(root + "/run", error);
	return mountProc(root + "/proc") && makeDevices(root + "/dev") &&
	       ::mount("sysfs", (root + "/sys").c_str(), "sysfs", MS_RDONLY | MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr) ==
	           0 &&
	       ::mount("tmpfs", (root + "/run").c_str(), "tmpfs", MS_NOSUID | MS_NODEV, kMemory) == 0 &&
	       fs::create_directory(root + "/run/lock", error);
}

} // namespace

std::string enterTrialRoot()
{
	const auto failed = [](const char* what)
	{ return std::string(what) + ": " + std::generic_category().message(errno); };
	const std::vector<Mount> all = mounts();
	if (::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
	    ::mount("tmpfs", kStage, "tmpfs", MS_NOSUID, kMemory) != 0)
	{
		return failed("no mounts of its own");
	}
	const std::string root = std::string(kStage) + "/root";
	std::error_code error;
	fs::create_directory(root, error);
	for (std::size_t i = 0; i < all.size(); ++i)
	{
		const std::string point = i == 0 ? root : root + all[i].point;
		const bool there = (!all[i].remote && overlay(all[i].point, point, i)) || bindReadOnly(all[i].point, point);
		if (!there && i == 0)
		{
			return failed("no copy of the files");
		}
	}
	if (!mountKernelFiles(root) || ::chroot(root.c_str()) != 0 || ::chdir("/") != 0)
	{
		return failed("no /proc, /dev, /sys and /run of its own");
	}
	return {};
}

bool replaceFile(const std::string& source, const std::string& path)
{
	std::error_code error;
	fs::create_directories(fs::path(path).parent_path(), error);
	fs::copy_file(source, path, fs::copy_options::overwrite_existing, error);
	// Where nothing can be written the file can still be covered.
	return !error || ::mount(source.c_str(), path.c_str(), nullptr, MS_BIND, nullptr) == 0;
}

} // namespace velarix::inspect::host
