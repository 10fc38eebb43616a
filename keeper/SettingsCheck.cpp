#include "Settings.h"

#include <array>

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

void checkProgram(const std::vector<std::string>& words, const char* key, int line, std::vector<Finding>& findings)
{
	if (!words.empty() && findCommand(words.front()).empty())
	{
		findings.push_back({line, EX_UNAVAILABLE, std::string(key) + ": " + words.front() + " is no program here",
		                    "install it, or correct its path"});
	}
}

void checkUser(const ServiceSettings& service, std::vector<Finding>& findings)
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

void checkLink(const std::string& program, int line, std::vector<Finding>& findings)
{
	const std::string link = std::string(kLinkDirectory) + "/" + program;
	if (::access(link.c_str(), X_OK) != 0)
	{
		findings.push_back({line, 0, "there is no " + link,
		                    "ln -s /usr/libexec/velarix-ha/keeper " + link + ", and name it as PROCESS_PATH"});
	}
}

/// What systemctl enable makes, looked for as systemd does: a link in any target's directory.
bool isEnabled(const std::string& unit)
{
	for (const char* target : {"multi-user.target", "graphical.target", "default.target", "network-online.target"})
	{
		for (const char* kind : {".wants/", ".requires/"})
		{
			struct stat status = {};
			const std::string link = std::string("/etc/systemd/system/") + target + kind + unit;
			if (::lstat(link.c_str(), &status) == 0)
			{
				return true;
			}
		}
	}
	return false;
}

void checkUnit(const ServiceSettings& service, std::vector<Finding>& findings)
{
	if (service.unit.empty())
	{
		return;
	}
	if (::access("/run/systemd/system", F_OK) != 0)
	{
		findings.push_back(
		    {service.commandLine, EX_UNAVAILABLE, "unit: this machine does not run systemd", "use command instead"});
		return;
	}
	bool found = false;
	for (const char* directory :
	     {"/etc/systemd/system/", "/run/systemd/system/", "/usr/lib/systemd/system/", "/lib/systemd/system/"})
	{
		const std::size_t at = service.unit.find('@');
		const std::string file = at == std::string::npos ? service.unit : service.unit.substr(0, at + 1) + ".service";
		found = found || ::access((directory + file).c_str(), F_OK) == 0;
	}
	if (!found)
	{
		findings.push_back({service.commandLine, EX_UNAVAILABLE, "there is no unit " + service.unit,
		                    "install it, or correct its name"});
	}
	else if (isEnabled(service.unit))
	{
		findings.push_back({service.commandLine, 0,
		                    service.unit + " is enabled: at boot it would run without the address",
		                    "systemctl disable " + service.unit});
	}
}

} // namespace

std::vector<Finding> checkMachine(const Settings& settings)
{
	std::vector<Finding> findings;
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
		checkUnit(service, findings);
		struct stat status = {};
		if (!service.directory.empty() && (::stat(service.directory.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)))
		{
			findings.push_back({service.line, EX_UNAVAILABLE, "there is no directory " + service.directory, "make it"});
		}
		checkLink(service.program, service.line, findings);
	}
	return findings;
}

} // namespace velarix::keeper
