// The command that raises the virtual IP.

#include "ctl/check/Checks.h"

#include "ctl/check/CommandChecks.h"
#include "ctl/check/CommandOutput.h"
#include "inspect/Names.h"
#include "inspect/SettingsKeys.h"

namespace velarix::ctl::checks
{

using namespace inspect;

namespace
{

using shell::AddressAction;
using shell::Command;
using shell::Output;
using shell::Place;

/// The kernel's limit for a label.
constexpr std::size_t kLabelLength = 15;

/// What the start command prints counts as its failure.
void output(Findings& findings, const CommandText& text)
{
	std::string printing;
	std::string unclear;
	shell::forEachSimple(text.script(),
	                     [&](const Command& command, const Place& place)
	                     {
		                     const std::vector<std::string> words = shell::programWords(command);
		                     if (place.silenced || words.empty())
		                     {
			                     return;
		                     }
		                     const Output what = shell::outputOf(words);
		                     std::string& kept = what == Output::some ? printing : unclear;
		                     if (what != Output::none && kept.empty())
		                     {
			                     kept = words[0];
		                     }
	                     });
	const std::string effect =
	    "output counts as a failure: the agent logs it, waits and looks again, so that the address comes at least five "
	    "seconds late; one that \"ifconfig\" does not list is raised over and over for ever";
	const std::string remedy = "discard the output: ( ... ) >/dev/null 2>&1";
	if (!printing.empty())
	{
		findings.error(kStartRole.key, {"start-command-prints",
		                                std::string(kStartRole.key) + " prints: " + printing + " writes to its output",
		                                effect, remedy});
	}
	else if (!unclear.empty())
	{
		findings.warning(kStartRole.key,
		                 {"start-command-may-print",
		                  std::string(kStartRole.key) + " may print: the output of " + unclear + " is not discarded",
		                  effect, remedy});
	}
}

void label(Findings& findings, const AddressAction& action)
{
	const std::string example = std::string("label ") + kServiceCard + ":ha";
	if (action.label.empty() || action.label == action.card)
	{
		findings.warning(
		    kStartRole.key,
		    {"address-without-label", "the address is raised without a label",
		     "\"ifconfig\" does not list it, where the agent looks: it relies on a ping of its own address "
		     "alone, and raises the address again whenever that fails",
		     "add \"" + example + "\" behind the card"});
	}
	else if (!action.card.empty() && !action.label.starts_with(action.card))
	{
		findings.error(kStartRole.key, {"label-of-another-card",
		                                "the label " + action.label + " does not begin with the card, " + action.card,
		                                kStartRole.useless, "write \"label " + action.card + ":ha\""});
	}
	else if (action.label.size() > kLabelLength)
	{
		findings.error(kStartRole.key, {"long-label", "the label " + action.label + " has more than 15 characters",
		                                kStartRole.useless, "write \"" + example + "\""});
	}
}

void raised(Findings& findings, const AddressAction& action)
{
	const std::string address = findings.file.text(key::kVirtualIP).value_or("");
	if (!shell::isVariable(action.address) && action.address != address)
	{
		findings.error(kStartRole.key, {"another-address-raised",
		                                "the command raises " + action.address + ", and VIRTUAL_IP is " + address,
		                                kStartRole.useless, "write the same address in both"});
	}
	if (!shell::isVariable(action.card) && action.card != kServiceCard)
	{
		findings.warning(kStartRole.key, {"another-card", "the address is raised on " + action.card,
		                                  "the agent watches the carrier of eth0: that of " + action.card +
		                                      " may go without a fail-over",
		                                  "raise it on eth0"});
	}
	label(findings, action);
}

void announcement(Findings& findings, const CommandText& text)
{
	bool asks = false;
	bool announces = false;
	shell::forEachSimple(text.script(),
	                     [&](const Command& command, const Place&)
	                     {
		                     const std::vector<std::string> words = shell::programWords(command);
		                     const std::string program = words.empty() ? "" : shell::baseName(words[0]);
		                     const bool arping = program == "arping";
		                     const bool announcing = shell::hasOption(words, 'A') || shell::hasOption(words, 'U');
		                     asks = asks || (arping && !announcing);
		                     announces =
		                         announces || (arping && announcing) || program == "arpsend" || program == "send_arp";
	                     });
	if (announces || text.runsOwnProgram())
	{
		return;
	}
	findings.warning(
	    kStartRole.key,
	    {"no-gratuitous-arp",
	     asks ? "arping is called without -A or -U, so that it asks and announces nothing"
	          : "the command sends no gratuitous ARP",
	     "after a take-over the clients and the gateway go on sending to the other node until their memory "
	     "of it ends: some 45 seconds with Linux",
	     "let it announce the address, in the background and silently: (while ip -4 -o addr show dev eth0 | "
	     "grep -q ADDRESS/; do arping -q -A -c 1 -w 1 -I eth0 ADDRESS; sleep 4; done) &"});
}

} // namespace

void startCommand(Findings& findings)
{
	const CommandText text(findings, kStartRole);
	if (!text.usable())
	{
		return;
	}
	text.general();
	output(findings, text);
	const std::vector<AddressAction> actions = text.actions(true);
	for (const AddressAction& action : actions)
	{
		raised(findings, action);
	}
	if (actions.empty() && text.hasNothingToDoWithAddress())
	{
		findings.warning(kStartRole.key,
		                 {"raises-nothing", "nothing in the command raises an address", kStartRole.useless,
		                  "write ip addr add ADDRESS/PREFIX dev eth0 label eth0:ha"});
	}
	announcement(findings, text);
}

} // namespace velarix::ctl::checks
