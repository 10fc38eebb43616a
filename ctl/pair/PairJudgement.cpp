#include "ctl/pair/PairReport.h"

#include <nlohmann/json.hpp>

#include "inspect/TimeText.h"

namespace velarix::ctl
{

namespace
{

using namespace std::chrono_literals;
using std::chrono::milliseconds;
using enum Grade;

/// Heartbeats and logs are in seconds; less is nobody's trouble.
constexpr milliseconds kClocks = 2s;
/// Of two reports from files.
constexpr milliseconds kApart = 1min;
/// The end of the year 9999: whatever a partner reports can be compared.
constexpr std::int64_t kLastTime = 253'402'300'799'000;
constexpr char kPair[] = "pair";
constexpr char kHeld[] = "/virtual_ip/value/held";

/// Of a node's own problems, where their texts do not say what to do.
const std::map<std::string_view, const char*> kCures{
    {"agent-dead", "velarixctl events tells how it ended; systemctl restart velarix-ha (a start on a master "
                   "interrupts the service)"},
    {"agent-not-running", "systemctl start velarix-ha"},
    {"agent-frozen", "find who stopped it; kill -CONT its process, or velarixctl maintenance off"},
    {"maintenance-forgotten", "velarixctl maintenance off --pair"},
    {"thread-lost", "make room on the disk of the log, then restart the agent"},
    {"log-disk", "make room on the disk of the log"},
    {"gateway", "look for the gateway, the cable and the switch port of this node"},
    {"service-interface", "look for the cable, the switch port and the driver of the interface"},
    {"communication-interface", "look for the cable, the switch port and the driver of the interface"},
    {"partner-silent", "look at the partner: does it run, does its network, does a firewall drop the port"},
    {"partner-mute", "start or restart the agent of the partner"},
    {"partner-refuses", "look at the partner's agent and firewall; velarixctl check there"},
    {"settings-newer", "restart the agent of the standby, switch over, restart the other"},
    {"start-fails", "run velarixctl check on that node: it tries the start command"},
    {"programs-missing", "velarixctl events, and the service's own log"},
    {"service-failed", "repair the service: its own log tells why it dies"},
    {"flapping", "velarixctl events on both nodes: the causes of the last changes"},
    {"duplicate-address", "repair the network between the nodes"},
    {"address-taken", "find the host that has the address, by the hardware address"},
    {"address-conflict", "find the other host by its hardware address, in the switch (docs/split-brain.md)"},
    {"log-stale", "look at the disk of the log, and with ps axf for a command that hangs; restart the agent"},
    {"receiver-stuck", "look with ps axf for the command that hangs; restart the agent"},
    {"address-missing", "run the start command by hand, as root; velarixctl check tries it"},
    {"address-on-slave", "take it off there with ip addr del; then fix the stop and kill commands"},
    {"programs-on-slave", "end them"},
    {"two-masters", "repair the network between the nodes (docs/split-brain.md); MODE = 1 on one node alone"},
    {"no-master", "wait ten seconds; if it lasts, velarixctl check --partner FILE: MODE = 1 on one node"},
    {"partner-asks", "velarixctl events on the partner tells why it gave up"},
    {"asks", "velarixctl events on this node tells why it gave up"},
    {"service-unwell", "velarixctl events; run its command and its check by hand"},
    {"reach-isolated", "ping the targets from this node: look for its cables and switch ports"},
    {"reach-partner-only", "ping the targets from this node: look for its cables and switch ports"},
    {"reach-shared-outage", "look for what both nodes share on the way to the targets: a switch, a router"},
    {"target-lost", "ping it from this node; if it is gone for good, take another target (keeper.ini)"},
    {"program-file", "install it as on the partner, or correct the settings"},
};

class Judge
{
public:
	explicit Judge(const PairReports& reports) : m_reports(reports), m_own(reports.own), m_partner(reports.partner) {}

	PairProblems run()
	{
		if (m_partner.is_null())
		{
			addWhen(true, "partner-not-reached", unknown, "the partner was not asked: " + m_reports.whyNot,
			        "make \"ssh TARGET velarixctl status --for-pair\" work, or see to the partner");
		}
		else if (areOnePair())
		{
			address();
			roles();
			differences();
			clocks();
		}
		for (const Json* report : {&m_own, &m_partner})
		{
			nodes(*report);
		}
		std::ranges::stable_sort(m_problems, {}, [](const Json& one) { return -rankOf(severityOf(one)); });
		return std::move(m_problems);
	}

private:
	const PairReports& m_reports;
	const Json& m_own;
	const Json& m_partner;
	PairProblems m_problems;

	void addWhen(bool is, const std::string& id, Grade severity, const std::string& text, const std::string& cure,
	             const std::string& node = kPair)
	{
		if (is)
		{
			m_problems.push_back(
			    {{"id", id}, {"severity", wordOf(severity)}, {"node", node}, {"text", text}, {"cure", cure}});
		}
	}

	bool areOnePair()
	{
		const std::string own = textAt(m_own, "/node");
		const std::string partner = textAt(m_partner, "/node");
		const auto unlike = [](const std::string& one, const std::string& other)
		{ return !one.empty() && !other.empty() && one != other; };
		for (const Json* report : {&m_own, &m_partner})
		{
			addWhen(textAt(*report, "/node").empty(), "settings-not-known", unknown,
			        nameOf(*report) + " has no readable settings: nobody can tell whether the two are a pair",
			        "velarixctl check there");
		}
		const std::string ownPartner = textAt(m_own, "/partner/address");
		const std::string partnerPartner = textAt(m_partner, "/partner/address");
		const bool are = !unlike(ownPartner, partner) && !unlike(partnerPartner, own);
		addWhen(!are, "not-the-partner", unknown,
		        "the reports are not of one pair: " + nameOf(m_own) + " has the partner " + ownPartner + ", and " +
		            nameOf(m_partner) + " has " + partnerPartner,
		        "ask the partner itself: --ssh, --partner-json");
		return are;
	}

	bool eitherSays(std::string_view id) const
	{
		const auto says = [&](const Json& report)
		{
			return std::ranges::any_of(listAt(report, "/problems"),
			                           [&](const Json& problem) { return textAt(problem, "/id") == id; });
		};
		return says(m_own) || says(m_partner);
	}

	bool isMoving() const { return eitherSays("taking-over") || eitherSays("asks") || eitherSays("partner-asks"); }

	void address()
	{
		const std::string address = textAt(m_own, "/virtual_ip/address");
		const bool moves = isMoving() || eitherSays("agent-starting");
		addWhen(isAt(m_own, kHeld, true) && isAt(m_partner, kHeld, true), "split-brain", critical,
		        "both nodes hold " + address,
		        "repair the network between the nodes; then drop the address on the node that clients do not reach "
		        "(docs/split-brain.md)");
		addWhen(isAt(m_own, kHeld, false) && isAt(m_partner, kHeld, false), "nobody-holds-address",
		        moves ? warning : critical, "no node holds " + address + (moves ? "; one is taking the service" : ""),
		        moves ? "wait for it: velarixctl watch" : "velarixctl events on both nodes");
		for (const Json* report : {&m_own, &m_partner})
		{
			addWhen(isAt(*report, kHeld, true) && lastRoleOf(*report) == "slave", "address-not-at-master", critical,
			        nameOf(*report) + " holds the address and is standby", "velarixctl events there");
		}
	}

	void roles()
	{
		const std::string own = textAt(m_own, "/role/value");
		const std::string partner = textAt(m_partner, "/role/value");
		addWhen(own == "master" && partner == "master", "both-master", critical, "both nodes are master",
		        "repair the network between the nodes (docs/split-brain.md)");
		addWhen(own == "slave" && partner == "slave", "both-standby", isMoving() ? warning : critical,
		        "both nodes are standby", "velarixctl events on both nodes");
		const bool here = m_own.contains("maintenance") && m_own["maintenance"].is_object();
		const bool there = m_partner.contains("maintenance") && m_partner["maintenance"].is_object();
		addWhen(here != there, "maintenance-on-one", warning,
		        "only " + nameOf(here ? m_own : m_partner) + " is in maintenance: the other is watched by nobody",
		        "velarixctl maintenance on --pair, or off --pair");
	}

	void differences()
	{
		const auto settings = [](const Json& report)
		{
			const Json::json_pointer place("/pair/settings");
			return report.contains(place) && report.at(place).is_object() ? report.at(place) : Json::object();
		};
		const Json own = settings(m_own);
		const Json partner = settings(m_partner);
		std::string keys;
		for (const Json& change : Json::diff(own, partner))
		{
			keys += (keys.empty() ? "" : ", ") + Json::json_pointer(textAt(change, "/path")).back();
		}
		addWhen(!keys.empty() && !own.empty() && !partner.empty(), "settings-differ", warning,
		        "the nodes have other values of " + keys,
		        "velarixctl check --partner FILE, with the partner's settings");
		const std::string here = textAt(m_own, "/pair/version");
		const std::string there = textAt(m_partner, "/pair/version");
		addWhen(here != there && !here.empty() && !there.empty(), "versions-differ", warning,
		        nameOf(m_own) + " has version " + here + ", " + nameOf(m_partner) + " " + there,
		        "upgrade the older one, standby first");
	}

	/// Two files' times are also as far apart as their making; a partner that
	/// is asked tells its time before this node's is taken.
	void clocks()
	{
		const auto timeOf = [](const Json& report)
		{ return milliseconds(std::clamp(numberAt(report, "/pair/time_ms"), std::int64_t{0}, kLastTime)); };
		const milliseconds behind = timeOf(m_own) - timeOf(m_partner);
		const milliseconds apart = std::chrono::abs(behind);
		addWhen(m_reports.asked && (-behind > kClocks || behind > kClocks + *m_reports.asked), "clocks-differ", warning,
		        "the nodes' clocks are " + spanText(apart) + " apart", "see to NTP on both nodes");
		addWhen(!m_reports.asked && apart > kApart, "reports-apart", warning,
		        "the reports were made " + spanText(apart) + " apart", "make both now, if the clocks agree");
	}

	void nodes(const Json& report)
	{
		for (const Json& problem : listAt(report, "/problems"))
		{
			const std::string id = textAt(problem, "/id");
			const auto cure = kCures.find(id);
			addWhen(true, id, severityOf(problem), textAt(problem, "/text"), cure == kCures.end() ? "" : cure->second,
			        nameOf(report));
		}
	}
};

} // namespace

PairProblems judgePair(const PairReports& reports)
{
	return Judge(reports).run();
}

Grade severityOf(const Json& problem)
{
	const std::string word = textAt(problem, "/severity");
	return word == wordOf(critical) ? critical : word == wordOf(warning) ? warning : unknown;
}

Grade verdictOf(const PairProblems& problems)
{
	return problems.empty() ? ok : severityOf(problems.front());
}

} // namespace velarix::ctl
