#include "HostileRun.h"

#include <algorithm>
#include <fstream>
#include <memory>
#include <thread>

#include "CellRun.h"
#include "Frames.h"
#include "Moment.h"
#include "Observe.h"
#include "Plan.h"
#include "Words.h"

namespace velarix::lab
{

namespace
{

/// A stranger that is served at all is served by then.
constexpr Millis heardLimit{30000};
/// A service that comes back at all is back by then: a burst holds up the receiver.
constexpr Millis backLimit{240000};

LabOptions optionsFor(const HostilePlan& plan)
{
	LabOptions options;
	options.installRoot = plan.installRoot;
	options.settingsA = NodeSettings::standard(HostId::a, plan.times.pair);
	options.settingsB = NodeSettings::standard(HostId::b, plan.times.pair);
	options.seed = seedOfRun(plan.seed, 1, plan.cell.name);
	return options;
}

void takeLowest(AgentVitals& lowest, pid_t pid)
{
	AgentVitals now{pid, 0, static_cast<int>(descriptorsOf(pid).size()), 0};
	std::ifstream status("/proc/" + std::to_string(pid) + "/status");
	for (std::string word; status >> word;)
	{
		word == "Threads:" ? status >> now.threads : word == "VmRSS:" ? status >> now.residentKib : status;
	}
	if (lowest.pid != pid)
	{
		lowest = now;
		return;
	}
	lowest.threads = std::min(lowest.threads, now.threads);
	lowest.descriptors = std::min(lowest.descriptors, now.descriptors);
	lowest.residentKib = std::min(lowest.residentKib, now.residentKib);
}

std::array<std::string, 2> rolesOf(Lab& lab)
{
	return {lab.role(HostId::a), lab.role(HostId::b)};
}

std::string heard(Lab& lab, HostId node)
{
	std::string words;
	inNetworkOf(lab.node(node).host(),
	            [&] {
		            words = overhearHeartbeat(plan::communicationCard, plan::addressOf(node, Network::communication),
		                                      Millis(15000));
	            });
	if (words.empty())
	{
		throw LabError("no heartbeat of " + nodeText(node) + " was overheard");
	}
	return words;
}

/// The stranger neither forwards what reaches him by mistake, nor answers questions
/// about an address that he has borrowed: he lies to his target alone.
void prepareStranger(Lab& lab, const AttackInfo& attack, HostId target)
{
	std::string commands = "echo 1 >/proc/sys/net/ipv4/conf/all/arp_ignore; echo 0 >/proc/sys/net/ipv4/ip_forward";
	if (attack.asPartner)
	{
		commands +=
		    std::string("; ip addr add ") + plan::addressOf(otherNode(target), Network::communication) + "/32 dev lo";
	}
	runOrThrow({{"sh", "-ec", commands}, {}, lab.stranger().inside()});
}

/// A running attack; ended with its object.
class Stranger
{
public:
	Stranger(Lab& lab, const HostilePlan& plan)
	    : m_lab(lab),
	      m_attack(attackNamed(plan.cell.attack)), m_orders{plan.cell.target,
	                                                        plan.seed,
	                                                        plan.count,
	                                                        wordsFor(lab, plan.cell),
	                                                        lab.node(plan.cell.target).diskFile(plan::logFile),
	                                                        m_stop}
	{
		prepareStranger(lab, m_attack, plan.cell.target);
		m_thread = std::thread(
		    [this]
		    {
			    try
			    {
				    inNetworkOf(m_lab.stranger(), [this] { m_attack.carryOut(m_orders, m_tally); });
			    }
			    catch (const LabError& error)
			    {
				    m_problem = error.what();
			    }
			    m_ended = true;
		    });
	}
	~Stranger() { end(); }
	Stranger(const Stranger&) = delete;
	Stranger& operator=(const Stranger&) = delete;

	/// Until he has got hold of the receiver, or at least begun.
	void awaitHold(bool guarded)
	{
		const auto begun = [&] { return m_tally.tries >= 5 || m_ended; };
		const auto marked = [&] { return contains(m_orders.log, m_attack.mark); };
		const bool well = guarded || m_attack.mark == nullptr ? waitFor(begun, heardLimit, "a stranger to begin")
		                                                      : waitFor(marked, heardLimit, "a stranger to be heard");
		if (!well)
		{
			throw LabError(std::string("the attack ") + m_attack.name + " did not get going");
		}
	}

	void awaitEnd() { m_thread.join(); }

	/// @throws LabError when the attack failed by itself
	void endWell()
	{
		end();
		if (!m_problem.empty())
		{
			throw LabError("the attack failed: " + m_problem);
		}
		run({{"ip", "addr", "flush", "dev", "lo", "label", "lo", "to", "198.51.100.0/24"},
		     {},
		     m_lab.stranger().inside()});
	}

	bool lasting() const { return m_attack.lasting; }
	const std::string& words() const { return m_orders.words; }
	const AttackTally& tally() const { return m_tally; }
	const std::filesystem::path& log() const { return m_orders.log; }

private:
	Lab& m_lab;
	const AttackInfo& m_attack;
	std::atomic<bool> m_stop{false};
	std::atomic<bool> m_ended{false};
	AttackOrders m_orders;
	AttackTally m_tally;
	std::string m_problem;
	std::thread m_thread;

	static std::string wordsFor(Lab& lab, const HostileCell& cell)
	{
		if (cell.attack == "replay")
		{
			return heard(lab, *hostNamed(cell.detail));
		}
		return cell.detail.empty() ? std::string() : forgedHeartbeat(cell.detail);
	}

	static bool contains(const std::filesystem::path& log, const std::string& text)
	{
		std::ifstream stream(log, std::ios::binary);
		for (std::string line; std::getline(stream, line);)
		{
			if (line.find(text) != std::string::npos)
			{
				return true;
			}
		}
		return false;
	}

	void end()
	{
		m_stop = true;
		if (m_thread.joinable())
		{
			m_thread.join();
		}
	}
};

long messagesRead(const std::filesystem::path& log)
{
	std::ifstream stream(log, std::ios::binary);
	long count = 0;
	for (std::string line; std::getline(stream, line);)
	{
		count += line.find("received message: ") != std::string::npos ? 1 : 0;
	}
	return count;
}

void watchAttack(Lab& lab, const HostilePlan& plan, Stranger& stranger, HostileRecord& record)
{
	const HostileOutcome& expected = plan.cell.expected(plan.guard);
	const Millis from = lab.clock().now();
	if (plan.cell.event)
	{
		stranger.awaitHold(plan.guard != Guard::none);
		lab.inject(*plan.cell.event);
	}
	if (!stranger.lasting())
	{
		stranger.awaitEnd();
	}
	if (plan.cell.event && expected.away == Away::some)
	{
		const auto back = [&] { return lab.owners() == expected.owner && lab.answeredBy() == expected.owner; };
		waitFor(back, backLimit, "the service to be back", [&] { return lab.stateText(); });
	}
	const bool forGood = expected.away == Away::lasting;
	const Millis quiet = forGood ? plan.times.patience() : plan.times.quiet();
	const Millis took = lab.clock().now() - from;
	record.during = observe(lab, from, quiet, took + plan.times.patience() + quiet, took);
	record.roles = rolesOf(lab);
}

void watchAftermath(Lab& lab, const HostilePlan& plan, Stranger& stranger)
{
	const bool lasting = stranger.lasting();
	stranger.endWell();
	if (lasting)
	{
		const HostId after = *hostNamed(plan.cell.expected(plan.guard).after);
		lab.waitForService(after, plan.times.serveLimit());
		observe(lab, lab.clock().now(), plan.times.quiet(), plan.times.patience());
	}
}

void runInLab(Lab& lab, const HostilePlan& plan, HostileRecord& record)
{
	setUpGuard(lab, plan.guard);
	letServe(lab, plan.cell.master, plan.times.serveLimit());
	record.before = momentOf(lab);
	const auto stranger = std::make_unique<Stranger>(lab, plan);
	record.words = stranger->words();
	const long readBefore = messagesRead(stranger->log());
	watchAttack(lab, plan, *stranger, record);
	record.read = messagesRead(stranger->log()) - readBefore;
	watchAftermath(lab, plan, *stranger);
	record.tries = stranger->tally().tries;
	record.connections = stranger->tally().connections;
	record.messages = stranger->tally().messages;
	record.bytes = stranger->tally().bytes;
	record.dropped = plan.guard == Guard::none ? 0 : droppedByFirewall(lab, plan.cell.target);
	record.owner = lab.owners();
	record.after = momentOf(lab);
}

} // namespace

PairMoment momentOf(Lab& lab)
{
	PairMoment moment;
	for (int look = 0; look < 8; ++look)
	{
		for (const HostId node : nodes)
		{
			const std::optional<ProcessEntry> agent = lab.node(node).isOn() ? lab.node(node).agent() : std::nullopt;
			if (agent)
			{
				takeLowest(moment.agents[static_cast<std::size_t>(node)], agent->pid);
			}
		}
		std::this_thread::sleep_for(Millis(250));
	}
	moment.roles = rolesOf(lab);
	return moment;
}

HostileRecord runHostile(const HostilePlan& plan)
{
	HostileRecord record;
	record.name = plan.cell.name;
	record.guard = nameOf(plan.guard);
	Lab lab(optionsFor(plan));
	try
	{
		runInLab(lab, plan, record);
		record.differences = differencesOf(record, plan);
	}
	catch (const LabError& error)
	{
		record.differences.push_back(std::string("the run did not get to its end: ") + error.what());
	}
	if (!record.differences.empty())
	{
		record.timeline = toText(lab.timeline()) + errorsIn(lab);
	}
	return record;
}

} // namespace velarix::lab
