// What each word of the keeper's log means (keeper/Runtime.h).

#include <array>
#include <string>

#include "ctl/history/KeeperLog.h"
#include "ctl/history/OperatorLog.h"
#include "inspect/Pattern.h"

namespace velarix::ctl
{

namespace
{

constexpr std::string_view kAddress = "ha-address";
constexpr std::string_view kService = "ha-NAME";
constexpr std::string_view kReach = "ha-reach";
constexpr std::string_view kNothing = "nothing";
/// What stands before a line's detail.
constexpr std::size_t kLongest = 256;

constexpr CatalogueRow row(std::string_view label, std::string_view word, std::string_view when,
                           std::string_view action = kNothing)
{
	return {0, 0, "", label, "keeper", word, "", when, action, "The virtual address and the services (keeper.log)."};
}

constexpr std::array kWords{
    row(kAddress, "started", "the agent has started the program of the virtual address"),
    row(kAddress, "raised", "nobody answered for the address, and it is on this node now"),
    row(kAddress, "lowered", "the address was taken from this node; the line before it says why"),
    row(kAddress, "waiting",
        "another host answers for the address, so this node does not raise it: mostly the partner, while the network "
        "between the nodes is cut",
        "nothing on this node; repair the network between the nodes. When the hardware address is neither node's, "
        "find that host in the switch"),
    row(kAddress, "conflict", "another host has claimed the address while it was on this node (split-brain)",
        "nothing once; when it repeats, find the host that holds it as well by its ARP packets"),
    row(kAddress, "yielded",
        "another host asked for the address, and this one gave it up: both held it, or a service has ended here",
        "repair the network between the nodes; see why the service has ended"),
    row(kAddress, "stalled", "this machine or this process stood still for three seconds or longer",
        "look for a paused virtual machine, or for a machine without memory"),
    row(kAddress, "removed", "somebody removed the address from the interface; it was raised again at once",
        "find what removes it: a network manager, a script"),
    row(kAddress, "offline", "the service interface is missing, down or without carrier",
        "repair the interface, its cable or its switch port"),
    row(kAddress, "stopped", "the agent has ended the program: the service moves, or the agent starts anew"),
    row(kAddress, "failed", "the address cannot be held; the text has the kernel's reason, or that of keeper.ini",
        "velarixctl check; with \"Operation not permitted\" the agent does not run as root"),
    row(kService, "started", "the supervisor of the service has started and waits for the address"),
    row(kService, "running", "the service runs"),
    row(kService, "died", "the service has ended by itself, and is started again on this node",
        "find out why in the service's own log"),
    row(kService, "restarting", "the service is started again on this node"),
    row(kService, "check-failed", "the check of the service has not ended with 0, or not in time",
        "run the check by hand; when the service is only slow, raise check_timeout or check_failures"),
    row(kService, "stopping", "the service is being stopped: SIGTERM, and SIGKILL after stop_timeout"),
    row(kService, "stopped", "nothing of the service is left on this node"),
    row(kService, "failed",
        "the service died more often than restarts allows, or cannot be started: this node gives it up, and the agent "
        "hands over",
        "repair the service, then velarixctl status on both nodes"),
    row(kReach, "started", "the program of the reachability targets has started"),
    row(kReach, "target-found", "a target has answered for the first time"),
    row(kReach, "target-lost", "a target has not answered as many pings as failures says",
        "ping it from this node; look at the interface and the switch on the way"),
    row(kReach, "target-back", "the target answers again"),
    row(kReach, "reachable", "enough targets answer, and the agent's gateway address is on lo"),
    row(kReach, "shared-outage", "too few targets answer, and the partner does not reach its own either: nothing moves",
        "repair the targets or the way to them"),
    row(kReach, "partner-only", "too few targets answer here, and the partner reaches its own",
        "repair this node's way to its targets"),
    row(kReach, "handing-over", "this node gives the service to the partner, which reaches its targets",
        "repair this node's way to its targets; the service does not come back by itself"),
    row(kReach, "isolated",
        "targets and partner were lost together: the gateway address is removed, and the agent gives the service up",
        "repair this node's network; when the partner was up, compare the keys: velarixctl check --partner"),
    row(kReach, "removed", "somebody removed the gateway address from lo; it was set again at once",
        "find what removes it"),
    row(kReach, "stopped", "the program was ended, and the gateway address is gone"),
    row(kReach, "failed", "the key cannot be read, or the address cannot be set; the text says why",
        "velarixctl check"),
    row(kOperator, kSwitchover,
        "an administrator, or the stop of the service with \"handover\", moves the service to the partner"),
    row(kOperator, kMaintenanceOn, "somebody works on this node: nothing fails over and nothing is restarted",
        "velarixctl maintenance off, when the work is done"),
    row(kOperator, kMaintenanceOff, "the maintenance is over; the agent goes on"),
    row("keeper", "killed", "a process of the keeper was killed or crashed; its other one has cleaned up behind it",
        "see the journal for who killed it: out of memory, an operator"),
};

} // namespace

std::vector<const CatalogueRow*> explainKeeper(std::string_view message)
{
	static const Pattern kLine(R"((ha-[a-z0-9_-]+|velarixctl)(?:\[\d+\]:?)? ([a-z-]+): )");
	const std::string text(message.substr(0, kLongest));
	const bool named = text.find("ha-") != std::string::npos || text.find(kOperator) != std::string::npos;
	const Pattern::Groups parts = named ? kLine.found(text) : Pattern::Groups();
	const bool line = !parts.empty();
	const std::string word = line ? parts[2] : text;
	const std::string program = line ? parts[1] : "";
	const std::string_view label =
	    program == kAddress || program == kReach || program == kOperator ? std::string_view(program) : kService;
	std::vector<const CatalogueRow*> rows;
	for (const CatalogueRow& row : kWords)
	{
		const bool its = !line || row.label == label || row.label == "keeper";
		if (row.text == word && its)
		{
			rows.push_back(&row);
		}
	}
	return rows;
}

} // namespace velarix::ctl
