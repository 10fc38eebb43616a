#include "lab/core/Programs.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "lab/core/Plan.h"

namespace velarix::lab
{

namespace
{

namespace fs = std::filesystem;

struct Tool
{
	const char* name;
	const char* package;
};

/// Those of the agent, of its commands, of the lab and of its faults.
constexpr std::array<Tool, 14> tools{{{"ip", "iproute2"},
                                      {"ifconfig", "net-tools"},
                                      {"ps", "procps"},
                                      {"killall", "psmisc"},
                                      {"arping", "iputils-arping"},
                                      {"grep", "grep"},
                                      {"cat", "coreutils"},
                                      {"chmod", "coreutils"},
                                      {"env", "coreutils"},
                                      {"sleep", "coreutils"},
                                      {"mount", "mount"},
                                      {"umount", "mount"},
                                      {"bash", "bash"},
                                      {"sh", "dash"}}};

constexpr std::array<const char*, 6> toolDirectories{"/usr/local/sbin", "/usr/local/bin", "/usr/sbin",
                                                     "/usr/bin",        "/sbin",          "/bin"};

bool present(const Tool& tool)
{
	return std::ranges::any_of(toolDirectories, [&](const char* directory)
	                           { return ::access((fs::path(directory) / tool.name).c_str(), X_OK) == 0; });
}

fs::path agentBelow(const fs::path& root)
{
	return root / (plan::agentProgram + 1);
}

fs::path chooseInstallRoot(const fs::path& wanted)
{
	const fs::path staged = VELARIX_LAB_STAGE;
	if (!wanted.empty())
	{
		if (!fs::exists(agentBelow(wanted)))
		{
			throw LabError("no installed agent below " + wanted.string() + ": " + agentBelow(wanted).string() +
			               " is missing (fill the directory with: DESTDIR=" + wanted.string() +
			               " cmake --install BUILD-DIRECTORY)");
		}
		return fs::absolute(wanted);
	}
	for (const fs::path& root : {staged, fs::path("/")})
	{
		if (fs::exists(agentBelow(root)))
		{
			return root;
		}
	}
	throw LabError("the agent is not built: neither " + agentBelow(staged).string() + " nor " +
	               agentBelow("/").string() + " is there (build the project first, or give --install-root)");
}

/// Beside the running program, or else where the build put it.
fs::path ownProgram(const char* name, const char* built)
{
	std::error_code ignored;
	const fs::path beside = fs::read_symlink("/proc/self/exe", ignored).parent_path() / name;
	for (const fs::path& path : {beside, fs::path(built)})
	{
		if (fs::exists(path, ignored))
		{
			return path;
		}
	}
	throw LabError(std::string(name) + " is missing: it was built as " + built);
}

/// Runs in a child of its own. @return 0, or which step failed
int tryNamespaces()
{
	if (::unshare(CLONE_NEWNS | CLONE_NEWNET | CLONE_NEWPID | CLONE_NEWUTS | CLONE_NEWIPC) != 0)
	{
		return 1;
	}
	if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
	    ::mount("lab", "/mnt", "tmpfs", 0, nullptr) != 0)
	{
		return 2;
	}
	::mkdir("/mnt/upper", 0755);
	::mkdir("/mnt/scratch", 0755);
	return ::mount("lab", "/usr", "overlay", 0, "lowerdir=/usr,upperdir=/mnt/upper,workdir=/mnt/scratch") == 0 ? 0 : 3;
}

} // namespace

Programs findPrograms(const fs::path& installRoot)
{
	return {chooseInstallRoot(installRoot), ownProgram("velarix-lab-init", VELARIX_LAB_INIT),
	        ownProgram("labhttpd", VELARIX_LAB_HTTPD), ownProgram("liblabclock.so", VELARIX_LAB_CLOCK)};
}

void requireTools()
{
	std::string missing;
	for (const Tool& tool : tools)
	{
		if (!present(tool))
		{
			missing +=
			    (missing.empty() ? "" : ", ") + std::string(tool.name) + " (Debian package " + tool.package + ")";
		}
	}
	if (!missing.empty())
	{
		throw LabError("missing on this machine: " + missing);
	}
}

std::optional<std::string> namespaceProblem()
{
	if (::geteuid() != 0)
	{
		return "namespaces unavailable: a lab has to be run as root (it makes network, process and mount "
		       "namespaces)";
	}
	const pid_t child = ::fork();
	if (child == 0)
	{
		_exit(tryNamespaces());
	}
	int status = -1;
	if (child < 0 || ::waitpid(child, &status, 0) != child || !WIFEXITED(status))
	{
		return "namespaces unavailable: no process can be made for the trial";
	}
	switch (WEXITSTATUS(status))
	{
	case 0:
		return std::nullopt;
	case 1:
		return "namespaces unavailable: this kernel or container refuses new namespaces";
	case 2:
		return "namespaces unavailable: this kernel or container refuses mounts in a new namespace";
	case 3:
		return "namespaces unavailable: this kernel or container refuses an overlay on /usr";
	default:
		return "namespaces unavailable: the trial ended with status " + std::to_string(WEXITSTATUS(status));
	}
}

} // namespace velarix::lab
