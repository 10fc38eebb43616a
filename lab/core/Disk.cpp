#include "lab/core/Disk.h"

#include <array>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/statvfs.h>
#include <sys/xattr.h>

#include "lab/core/Plan.h"

namespace velarix::lab
{

namespace
{

namespace fs = std::filesystem;

constexpr const char* tree = "usr/velarix";

/// What the installation provides and the agent does not make by itself.
constexpr std::array<const char*, 5> needed{"usr/velarix/bin/VelarixHA", "usr/velarix/bin/ini", "usr/velarix/bin/log",
                                            "usr/velarix/bin/log/runinfo.txt", "usr/velarix/pid"};

void requireInstalled(const fs::path& root)
{
	for (const char* path : needed)
	{
		if (!fs::exists(root / path))
		{
			throw LabError("the installed tree is not complete: " + (root / path).string() + " is missing");
		}
	}
}

/// A staged tree is copied whole below /usr. Of this machine's own installation
/// only its directory is taken, and no file that a running agent has written.
void copyInstalled(const fs::path& root, const fs::path& upper)
{
	if (root != "/")
	{
		fs::copy(root / "usr", upper, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
		return;
	}
	const fs::path source = root / tree;
	for (const fs::directory_entry& entry : fs::recursive_directory_iterator(source))
	{
		const fs::path relative = entry.path().lexically_relative(source);
		const fs::path target = upper / "velarix" / relative;
		const std::string parent = relative.parent_path().string();
		const bool written = parent == "bin/ini" || parent == "pid" || parent == "log";
		if (entry.is_directory())
		{
			fs::create_directories(target);
		}
		else if (entry.is_regular_file() && !written)
		{
			fs::copy_file(entry.path(), target);
		}
	}
}

} // namespace

fs::path fileOnDisk(const fs::path& disk, const std::string& path)
{
	return disk / "upper" / fs::path(path).lexically_relative("/usr");
}

void prepareDisk(const fs::path& disk, const Programs& programs)
{
	requireInstalled(programs.installRoot);
	try
	{
		const fs::path upper = disk / "upper";
		fs::create_directories(disk / "scratch");
		fs::create_directories(upper / "velarix");
		// Opaque: nothing of a lower /usr/velarix is seen through it.
		if (::setxattr((upper / "velarix").c_str(), "trusted.overlay.opaque", "y", 1, 0) != 0)
		{
			throwErrno("cannot mark the node's own directory");
		}
		copyInstalled(programs.installRoot, upper);
		const fs::path service = fileOnDisk(disk, plan::serviceProgram);
		fs::create_directories(service.parent_path());
		fs::copy_file(programs.service, service);
		fs::copy_file(programs.clockShim, fileOnDisk(disk, plan::clockShim));
		fs::create_directories(fileOnDisk(disk, plan::logFile).parent_path());
	}
	catch (const fs::filesystem_error& error)
	{
		throw LabError(std::string("cannot fill the disk of a node: ") + error.what());
	}
}

void setFull(const fs::path& disk, bool full)
{
	struct statvfs found
	{
	};
	if (::statvfs(disk.c_str(), &found) != 0)
	{
		throwErrno("cannot look at the disk of a node");
	}
	// The size that is in use, in pages: what the last page of a file has left
	// is all that can be written.
	const std::string size =
	    full ? std::to_string((found.f_blocks - found.f_bfree) * found.f_frsize / 1024) + "k" : "50%";
	const Descriptor system(::fspick(AT_FDCWD, disk.c_str(), FSPICK_CLOEXEC));
	if (!system || ::fsconfig(system.get(), FSCONFIG_SET_STRING, "size", size.c_str(), 0) != 0 ||
	    ::fsconfig(system.get(), FSCONFIG_CMD_RECONFIGURE, nullptr, nullptr, 0) != 0)
	{
		throwErrno("cannot change the size of a node's disk");
	}
}

} // namespace velarix::lab
