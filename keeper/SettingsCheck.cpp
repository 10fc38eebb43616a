// What this machine lacks for the settings.
#include "keeper/Settings.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <glob.h>
#include <grp.h>
#include <net/if.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sysexits.h>
#include <unistd.h>

namespace velarix::keeper
{

namespace
{

using Findings = std::vector<Finding>;

void checkProgram(const std::vector<std::string>& words, const char* key, int line, Findings& findings)
{
	if (!words.empty() && findCommand(words.front()).empty())
	{
		findings.push_back({line, EX_UNAVAILABLE, std::string(key) + ": " + words.front() + " is no program here",
		                    "install it, or correct its path"});
	}
}

void checkUser(const ServiceSettings& service, Findings& findings)
{
	if (!service.user.empty() && ::getpwnam(service.user.c_str()) == nullptr)
	{
		findings.push_back(
		    {service.userLine, EX_NOUSER, "there is no user " + service.user, "make the user, or correct the name"});
	}
	if (!service.group.empty() && ::getgrnam(service.group.c_str()) == nullptr)
	{
		findings.push_back(
		    {service.userLine, EX_NOUSER, "there is no group " + service.group, "make the group, or correct the name"});
	}
}

/// Before each start the service makes a link that is missing.
void checkLink(const std::string& program, int line, Findings& findings)
{
	const std::string link = std::string(kLinkDirectory) + "/" + program;
	struct stat status = {};
	const bool there = ::lstat(link.c_str(), &status) == 0;
	if (::stat(link.c_str(), &status) != 0 && (there || ::access("/usr/libexec/velarix-ha/service", X_OK) != 0))
	{
		findings.push_back({line, 0, there ? link + " is a link to nothing" : "there is no " + link,
		                    "ln -sfn /usr/libexec/velarix-ha/keeper " + link + ", and name it as PROCESS_PATH"});
	}
}

/// @param pattern may have {this,that} and *
/// @return the first file of it; empty for none
std::string firstOf(const std::string& pattern)
{
	glob_t found{};
	const bool any = ::glob(pattern.c_str(), GLOB_BRACE | GLOB_NOESCAPE, nullptr, &found) == 0;
	std::string first = any ? found.gl_pathv[0] : "";
	::globfree(&found);
	return first;
}

/// Its ExecStart does nothing, and it counts as running afterwards: other units do its work.
bool isUmbrella(const std::string& file)
{
	std::ifstream lines(file);
	bool remains = false;
	bool nothing = false;
	for (std::string line; std::getline(lines, line);)
	{
		remains =
		    remains || line == "RemainAfterExit=yes" || line == "RemainAfterExit=on" || line == "RemainAfterExit=true";
		nothing = nothing || (line.starts_with("ExecStart=") && line.ends_with("/bin/true"));
	}
	return remains && nothing;
}

void checkEnabled(const std::string& unit, int line, Findings& findings)
{
	if (!firstOf("/etc/systemd/system/*.{wants,requires}/" + unit).empty())
	{
		findings.push_back({line, 0, unit + " is enabled: at boot it would run without the address",
		                    "systemctl disable --now " + unit});
	}
}

void checkUnit(const std::string& unit, int line, Findings& findings)
{
	// As systemd looks for them: its own file, a template's, and what systemctl enable makes.
	const std::string directories = "{/etc,/run,/usr/local/lib,/usr/lib,/lib}/systemd/system/";
	const std::string own = firstOf(directories + unit);
	const std::string file = own.empty() ? firstOf(directories + unit.substr(0, unit.find('@')) + "@.service") : own;
	std::error_code error;
	if (::access("/run/systemd/system", F_OK) != 0)
	{
		findings.push_back({line, EX_UNAVAILABLE, "unit: this machine does not run systemd", "use command instead"});
	}
	else if (file.empty())
	{
		findings.push_back({line, EX_UNAVAILABLE, "there is no unit " + unit, "install it, or correct its name"});
	}
	else if (std::filesystem::canonical(file, error) == "/dev/null")
	{
		findings.push_back({line, EX_UNAVAILABLE, unit + " is masked", "systemctl unmask " + unit});
	}
	else
	{
		checkEnabled(unit, line, findings);
	}
	if (isUmbrella(file))
	{
		findings.push_back({line, 0, unit + " runs nothing itself: that its service has died is not noticed",
		                    "name the unit that runs it, as postgresql@15-main.service"});
	}
}

} // namespace

std::vector<Finding> checkMachine(const Settings& settings)
{
	Findings findings;
	const AddressSettings& address = settings.address;
	if (!address.interface.empty() && ::if_nametoindex(address.interface.c_str()) == 0)
	{
		findings.push_back(
		    {address.line, 0, "there is no interface " + address.interface, "correct its name, or bring it up"});
	}
	checkLink(kAddressProgram, address.line, findings);
	for (const ServiceSettings& service : settings.services)
	{
		checkProgram(service.command, "command", service.commandLine, findings);
		checkProgram(service.check, "check", service.line, findings);
		checkUser(service, findings);
		if (!service.unit.empty())
		{
			checkUnit(service.unit, service.commandLine, findings);
		}
		else if (!service.command.empty())
		{
			// As a distribution enables it when the package is installed.
			const std::string program = std::filesystem::path(service.command.front()).filename();
			checkEnabled(program + ".service", service.commandLine, findings);
		}
		struct stat status = {};
		if (!service.directory.empty() && (::stat(service.directory.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)))
		{
			findings.push_back({service.line, EX_UNAVAILABLE, "there is no directory " + service.directory, "make it"});
		}
		checkLink(service.program, service.line, findings);
	}
	return findings;
}

std::string findCommand(const std::string& command)
{
	const auto runs = [](const std::string& path)
	{
		struct stat status = {};
		return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && (status.st_mode & 0111U) != 0;
	};
	if (command.find('/') != std::string::npos)
	{
		return runs(command) ? command : "";
	}
	const char* set = std::getenv("PATH");
	std::string_view path = set != nullptr ? set : "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";
	while (!path.empty())
	{
		const std::size_t end = path.find(':');
		std::string candidate = std::string(path.substr(0, end)) + "/" + command;
		if (candidate.front() == '/' && runs(candidate))
		{
			return candidate;
		}
		path.remove_prefix(end == std::string_view::npos ? path.size() : end + 1);
	}
	return {};
}

} // namespace velarix::keeper
