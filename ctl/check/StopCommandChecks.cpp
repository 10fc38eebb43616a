// The command that drops the virtual IP, and the same in the kill command.

#include "ctl/check/Checks.h"

#include "ctl/check/CommandChecks.h"
#include "inspect/SettingsKeys.h"

namespace velarix::ctl::checks
{

using namespace inspect;

namespace
{

using shell::AddressAction;

std::string withPrefix(const AddressAction& action)
{
	return action.address + "/" + std::to_string(action.prefix.value_or(0));
}

/// Dropping what was raised needs the same prefix and card.
void fits(Findings& findings, const CommandRole& role, const AddressAction& drop, const AddressAction& raise)
{
	if (drop.address != raise.address || shell::isVariable(drop.address))
	{
		return;
	}
	if (drop.prefix && raise.prefix && *drop.prefix != *raise.prefix)
	{
		findings.error(role.key, {"another-prefix-dropped",
		                          "the command drops " + withPrefix(drop) + ", and raised is " + withPrefix(raise),
		                          "the system refuses to drop it: after a move both nodes hold the address",
		                          "write the same prefix in both"});
	}
	if (!shell::isVariable(drop.card) && !shell::isVariable(raise.card) && drop.card != raise.card)
	{
		findings.error(
		    role.key, {"another-card-dropped",
		               "the command drops the address on " + drop.card + ", and it is raised on " + raise.card,
		               "the address is never dropped: after a move both nodes hold it", "write the same card in both"});
	}
}

} // namespace

void droppedAddress(Findings& findings, const CommandRole& role, const CommandText& text)
{
	const std::string address = findings.file.text(key::kVirtualIP).value_or("");
	const shell::Script start = shell::parse(findings.file.text(key::kStartCommand).value_or(""));
	for (const AddressAction& drop : text.actions(false))
	{
		if (!shell::isVariable(drop.address) && drop.address != address)
		{
			findings.error(role.key, {"another-address-dropped",
			                          "the command drops " + drop.address + ", and VIRTUAL_IP is " + address,
			                          "the address is never dropped: after a move both nodes hold it",
			                          "write the same address in both"});
		}
		for (const AddressAction& raise : shell::addressActions(start))
		{
			fits(findings, role, drop, raise);
		}
	}
}

void stopCommand(Findings& findings)
{
	const CommandText text(findings, kStopRole);
	if (!text.usable())
	{
		return;
	}
	text.general();
	droppedAddress(findings, kStopRole, text);
	if (text.actions(false).empty() && text.hasNothingToDoWithAddress())
	{
		findings.warning(kStopRole.key, {"drops-nothing", "nothing in the command drops an address", kStopRole.useless,
		                                 "write ip addr del ADDRESS/PREFIX dev eth0 >/dev/null 2>&1"});
	}
}

} // namespace velarix::ctl::checks
