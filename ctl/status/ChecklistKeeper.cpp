// What the keeper and its reachability targets have to say.

#include "ctl/status/Checklist.h"
#include "inspect/TimeText.h"

namespace velarix::ctl
{

namespace
{

using enum Grade;

/// A split-brain of the address is reported for so long after its last conflict. The keeper
/// asks once a second.
constexpr std::chrono::seconds kConflict{15};

} // namespace

/// Without the marker ha-address waits only as long as the agent's start command runs, and
/// the log has what that printed: "ADDRESS is held by HOLDER since TIME".
std::string Checklist::otherHolder() const
{
	if (!m_state.keeper || m_state.keeper->address.waits())
	{
		return m_state.keeper ? m_state.keeper->address.holder : "";
	}
	constexpr std::string_view held = " is held by ";
	const std::string& output = m_state.snapshot().startOutput;
	const std::size_t at = output.find(held);
	const bool tries = m_state.snapshot().takeOver && m_state.snapshot().failedStarts > 0 && at != std::string::npos;
	return tries ? output.substr(at + held.size(), output.find(' ', at + held.size()) - at - held.size()) : "";
}

/// Whose the other holder is nobody can tell. A partner that is not heard is the likely
/// one; one that says it is standby is not.
void Checklist::addressElsewhere(const std::string& holder)
{
	const std::optional<Instant>& since = m_state.keeper->address.since;
	const std::string span = since ? " for " + spanText(*m_state.age(since)) : "";
	addFirst({{m_state.partnerRole.is(Role::slave),
	           {"address-taken", critical, kBlocks,
	            "another host, " + holder + ", holds the virtual address" + span +
	                ", and the partner does not: find it in the switch"}},
	          {true,
	           {kAddressWithPartner, warning, kHarmless,
	            "the network between the nodes is cut: the partner (" + holder + ") holds the address and serves" +
	                span + "; nothing to do here but to repair that network"}}});
}

void Checklist::reachability(const KeeperReach& reach)
{
	const std::string& state = reach.program.state;
	const std::string lost = reach.lost();
	// A master may be moved away from them.
	const bool blocks = m_state.role.is(Role::slave);
	addFirst(
	    {{!reach.program.runs || state == "frozen",
	      {"reach-stopped", critical, blocks,
	       std::string("ha-reach ") + (reach.program.runs ? "is frozen" : "does not run") +
	           ": the gateway address is missing, and this node cannot keep the service; systemctl restart "
	           "velarix-reach"}},
	     {state == "isolated",
	      {"reach-isolated", critical, blocks,
	       "this node is isolated: neither its targets (" + lost + ") nor the partner's keeper answer"}},
	     {state == "partner-only",
	      {"reach-partner-only", warning, blocks, "only the partner reaches its targets; here do not answer: " + lost}},
	     {state == "shared-outage",
	      {"reach-shared-outage", warning, kHarmless,
	       "neither node reaches its targets, nothing moves; here do not answer: " + lost}},
	     {!lost.empty(), {"target-lost", warning, kHarmless, "reachability targets do not answer: " + lost}}});
	addWhen(reach.partner == "silent" && state == "reachable" && m_state.partnerRole.known(), "reach-partner", warning,
	        kHarmless,
	        "the partner's ha-reach does not answer: it does not run, has another key, or a firewall drops UDP; when "
	        "this node loses its targets it gives up");
}

void Checklist::keeper()
{
	if (!m_state.keeper)
	{
		return;
	}
	const KeeperProgram& address = m_state.keeper->address;
	if (const std::string holder = otherHolder(); !holder.empty())
	{
		addressElsewhere(holder);
	}
	else if (address.lastConflict && m_state.now - *address.lastConflict < kConflict)
	{
		add("address-conflict", critical, kHarmless,
		    "split-brain: another host holds the virtual address, too; conflicts so far: " +
		        std::to_string(address.conflicts));
	}
	for (const KeeperProgram& service : m_state.keeper->services)
	{
		addFirst({{service.state == "failed",
		           {"service-failed", warning, kBlocks,
		            service.name + " died too often on this node: " + service.reason +
		                "; when it is repaired, clear this with rm /run/velarix-ha/" + service.name + ".state"}},
		          {service.state == "restarting" || service.check.starts_with("failed"),
		           {"service-unwell", warning, kHarmless,
		            service.name + " is " + service.state + ", its last check " + service.check +
		                (service.reason.empty() ? "" : "; it died last: " + service.reason)}}});
	}
	if (m_state.keeper->reach)
	{
		reachability(*m_state.keeper->reach);
	}
	addWhen(m_state.agent.lives() && !m_state.keeper->marked, "marker-missing", warning, kHarmless,
	        "the marker of the virtual address is missing: the next take-over sets it again, or keeper mark");
}

} // namespace velarix::ctl
