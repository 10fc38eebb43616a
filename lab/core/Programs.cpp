#include "lab/core/Programs.h"

#include <algorithm>
#include <array>

#include <unistd.h>

#include "lab/core/Host.h"
#include "lab/core/Plan.h"

namespace velarix::lab
{

namespace
{

namespace fs = std::filesystem;

/// Those of the agent, of its commands, of the lab and of its faults.
constexpr std::pair<const char*, const char*> tools[]{
    {"ip", "iproute2"},     {"ifconfig", "net-tools"},    {"ps", "procps"},
    {"killall", "psmisc"},  {"arping", "iputils-arping"}, {"grep", "grep"},
    {"cat", "coreutils"},   {"chmod", "coreutils"},       {"env", "coreutils"},
    {"sleep", "coreutils"}, {"mount", "mount"},           {"umount", "mount"},
    {"bash", "bash"},       {"python3", "python3"},       {"sh", "dash"}};

constexpr std::array<const char*, 6> toolDirectories{"/usr/local/sbin", "/usr/local/bin", "/usr/sbin",
                                                     "/usr/bin",        "/sbin",          "/bin"};

bool present(const char* tool)
{
	return std::ranges::any_of(toolDirectories, [&](const char* directory)
	                           { return ::access((fs::path(directory) / tool).c_str(), X_OK) == 0; });
}

fs::path agentBelow(const fs::path& root)
{
	return root / (plan::agentProgram + 1);
}

} // namespace

fs::path findInstallRoot(const fs::path& wanted)
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

void requireTools()
{
	std::string missing;
	for (const auto& [name, package] : tools)
	{
		if (!present(name))
		{
			missing += (missing.empty() ? "" : ", ") + std::string(name) + " (Debian package " + package + ")";
		}
	}
	if (!missing.empty())
	{
		throw LabError("missing on this machine: " + missing);
	}
	for (const char* built : {VELARIX_LAB_INIT, VELARIX_LAB_HTTPD, VELARIX_LAB_CLOCK})
	{
		if (!fs::exists(built))
		{
			throw LabError(fs::path(built).filename().string() + " is missing: it was built as " + built);
		}
	}
}

std::optional<std::string> namespaceProblem()
{
	if (::geteuid() != 0)
	{
		return "namespaces unavailable: a lab has to be run as root (it makes network, process and mount "
		       "namespaces)";
	}
	try
	{
		const Host root({"trial-root", HostKind::root, 0, 0, {}});
		const fs::path disk = root.root() / "mnt" / nameOf(HostId::a);
		fs::create_directories(disk / "upper");
		fs::create_directories(disk / "scratch");
		const Host node({"trial", HostKind::node, 1000, root.pid(), nameOf(HostId::a)});
		return std::nullopt;
	}
	catch (const NamespacesUnavailable& refused)
	{
		return refused.what();
	}
}

} // namespace velarix::lab
