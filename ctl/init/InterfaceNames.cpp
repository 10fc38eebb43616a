#include "ctl/init/NodeFiles.h"

#include <algorithm>
#include <array>
#include <sstream>

#include "inspect/ExitCode.h"
#include "inspect/Host.h"
#include "inspect/HostProgram.h"
#include "inspect/Names.h"
#include "inspect/Printable.h"

namespace velarix::ctl
{

using namespace inspect;

namespace
{

using host::Link;

struct Renaming
{
	std::string given; ///< by the operator; may be an alternative name
	const char* name;  ///< the one that the agent reads
	const char* use;
};

std::array<Renaming, 2> renamings(const InterfaceNames& names)
{
	return {{{names.service, kServiceInterface, "service"},
	         {names.communication, kCommunicationInterface, "communication"}}};
}

/// A bond, a VLAN, a bridge ...: made under its name. An end of a veth pair stands for hardware.
bool isMade(const Link& link)
{
	return !link.kind.empty() && link.kind != "veth";
}

bool isCalled(const Link& link, const std::string& name)
{
	return link.name == name || std::ranges::find(link.alternatives, name) != link.alternatives.end();
}

[[noreturn]] void refuse(const std::string& why)
{
	throw Failure(ExitCode::refused, why + "; nothing was written");
}

const Link& find(const std::vector<Link>& links, const std::string& name)
{
	const auto found = std::ranges::find_if(links, [&](const Link& link) { return isCalled(link, name); });
	if (found == links.end())
	{
		std::string there;
		for (const Link& link : links)
		{
			there += " " + link.name;
		}
		refuse("there is no interface " + name + "; there are" + there);
	}
	return *found;
}

/// @return how udev knows the interface
std::string match(const Link& link, const std::string& name)
{
	if (link.type != "ether")
	{
		refuse(link.name + " is no Ethernet interface, but " + link.type);
	}
	if (isMade(link))
	{
		refuse(link.name + " is a " + link.kind + ": it has the name that it is made with. Make it as " + name +
		       " where it is configured (docs/networks.md), and leave its ports' names as they are");
	}
	if (link.kind.empty() && link.permanent.empty())
	{
		refuse(link.name + " has no hardware address of its own by which udev could know it at the next start. Give it "
		                   "a fixed one in the hypervisor or in the firmware");
	}
	return link.kind.empty() ? "PermanentMACAddress=" + link.permanent : "MACAddress=" + link.address;
}

/// What udev cannot do.
void demandPossible(const std::vector<Link>& links, const Link& link, const Renaming& renaming)
{
	const auto holder = std::ranges::find_if(links, [&](const Link& other) { return isCalled(other, renaming.name); });
	if (holder != links.end() && &*holder != &link)
	{
		refuse(std::string(renaming.name) + " is another interface" +
		       (holder->name == renaming.name ? "" : ", " + holder->name + " by an alternative name") +
		       ", and udev exchanges no names. Exchange the cables or the addresses, or give that interface another "
		       "name first");
	}
	const auto twin = std::ranges::find_if(
	    links, [&](const Link& other)
	    { return &other != &link && !link.permanent.empty() && other.permanent == link.permanent; });
	if (twin != links.end())
	{
		refuse(link.name + " and " + twin->name + " have the same hardware address, " + link.permanent +
		       ": udev cannot tell them apart");
	}
}

std::string linkText(const Renaming& renaming, const std::string& match)
{
	return std::string("# The agent knows the ") + renaming.use +
	       " interface by this name alone; see systemd.link(5).\n" + "[Match]\n" + match +
	       "\nType=ether\n\n[Link]\nName=" + renaming.name + "\nAlternativeNamesPolicy=database onboard slot path\n";
}

/// udev tries once to give a name, in no order. The kernel may have called a third interface eth0 or eth1,
/// which leaves the name in the same moment, or may have found the two in the other order. Only these two get a
/// name for the time between: udev would keep it for any other. "trigger --settle" would wait without an end for
/// an attempt that failed.
constexpr char kAgain[] =
    "# At first the kernel may call another interface eth0 or eth1, and udev gives no name that is taken.\n"
    "[Service]\n"
    "ExecStart=-udevadm settle --timeout=10\n"
    "ExecStart=-/bin/sh -c 'cd /etc/systemd/network; for name in eth0 eth1; do "
    "grep -lx \".*=$$(cat /sys/class/net/$$name/address)\" 00-velarix-*.link | grep -v $$name && "
    "ip link set $$name name velarix-$$name; done'\n"
    "ExecStart=-udevadm trigger --action=add --subsystem-match=net\n";

/// Lines of whatever names an interface: network, packet filter, sysctl, units, the agent's own settings. Not
/// what a version control system keeps in a directory of its own.
void printLines(const std::vector<std::string>& words, const Paths& paths, std::ostream& out)
{
	host::ProgramCall call{{"grep", "-rnIwF", "--exclude-dir=.?*"}, {"LC_ALL=C"}, {}, std::chrono::seconds(60)};
	for (const std::string& word : words)
	{
		call.arguments.insert(call.arguments.end(), {"-e", word});
	}
	call.arguments.insert(call.arguments.end(), {paths.below("/etc"), paths.settings.parent_path()});
	const host::ProgramEnd grep = host::runProgram(call);
	constexpr int kNoLine = 1;
	std::vector<std::string> lines;
	std::istringstream found(grep.output);
	for (std::string line; std::getline(found, line);)
	{
		lines.push_back(printable(line));
	}
	if (lines.empty())
	{
		lines.push_back(grep.status == kNoLine ? "none" : "not known: " + printable(grep.reason()));
	}
	// By file; within one they are in order.
	std::ranges::stable_sort(lines, {}, [](const std::string& line) { return line.substr(0, line.find(':')); });
	out << "Lines with these names, for you to change:\n";
	for (const std::string& line : lines)
	{
		out << "  " << line << '\n';
	}
}

} // namespace

std::vector<NewFile> linkFiles(const InterfaceNames& names, const Paths& paths)
{
	if (names.service.empty() && names.communication.empty())
	{
		return {};
	}
	if (names.service.empty() || names.communication.empty())
	{
		throw Failure(ExitCode::usage, "--service-interface and --communication-interface go together");
	}
	const std::vector<Link> links = host::links();
	std::vector<NewFile> files;
	std::vector<const Link*> chosen;
	for (const Renaming& renaming : renamings(names))
	{
		const Link& link = find(links, renaming.given);
		chosen.push_back(&link);
		if (isMade(link) && link.name == renaming.name)
		{
			continue;
		}
		const std::string how = match(link, renaming.name);
		demandPossible(links, link, renaming);
		// The first file that matches counts: netplan's begin with "10-".
		const std::string file = std::string("00-velarix-") + renaming.name + ".link";
		files.push_back({paths.below("/etc/systemd/network") / file, linkText(renaming, how), false, true});
	}
	if (chosen[0] == chosen[1])
	{
		refuse(names.service + " cannot be both");
	}
	files.push_back({paths.below("/etc/systemd/system/systemd-udev-trigger.service.d") / "velarix-interfaces.conf",
	                 kAgain, false, true});
	return files;
}

void printRenaming(const InterfaceNames& names, const std::vector<NewFile>& files, const Paths& paths,
                   std::ostream& out)
{
	const std::vector<Link> links = host::links();
	std::vector<std::string> former;
	for (const Renaming& renaming : renamings(names))
	{
		if (renaming.given != renaming.name)
		{
			former.push_back(renaming.given);
			const bool done = find(links, renaming.given).name == renaming.name;
			out << printable(renaming.given) << (done ? " is " : " becomes ") << renaming.name << ", the "
			    << renaming.use << " interface" << (done ? " already" : ", at the next start") << '\n';
		}
	}
	if (former.empty())
	{
		return;
	}
	printLines(former, paths, out);
	out << "Then: update-initramfs -u (or dracut -f), reboot, velarixctl check\nWay back: rm";
	for (const NewFile& file : files)
	{
		out << ' ' << printable(file.path.string());
	}
	out << ", the lines as they were, update-initramfs -u, reboot\n";
}

} // namespace velarix::ctl
