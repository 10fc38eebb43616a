#include "dev/simulate/Run.h"

#include <algorithm>
#include <cstring>

#include "dev/simulate/Chronicle.h"
#include "dev/simulate/Programs.h"

namespace velarix::simulate
{

namespace
{

constexpr Micros kPlainSplit = 12 * kSecond;
constexpr Micros kUnaddressed = kSecond;
/// A look of the agent at its programs, and what it waits for before.
constexpr Micros kAgentLooks = 6 * kSecond;
/// A standby that still has the address then is not about to drop it.
constexpr Micros kLeft = 3 * kSecond;
/// From a change of the role to the line that reports it.
constexpr Micros kUnreported = 5 * kSecond;
/// Two of the three probes that precede an address: the first may be one of a node that waits.
constexpr int kQuietProbes = 2;
/// Three probes, their answers on a slow network, and the holder's wait for them.
constexpr Micros kRecheck = kSecond;
/// A schedule has some twenty thousand.
constexpr int kMostEvents = 1'000'000;
constexpr Micros kKeeperSettle = 16 * kSecond;
constexpr Micros kPlainSettle = 30 * kSecond;
constexpr const char* kRoles = "roles do not tell the owner";

class Judge
{
public:
	Judge(World& world, const Schedule& schedule)
	    : m_world(world), m_standing(schedule.size(), false), m_schedule(schedule),
	      m_killsService(hasFault("keeper-kill-service"))
	{
		world.observe = [this] { look(); };
		world.published = [this](const Node& node, const std::string& state) { judgeHolder(node, state); };
	}

	/// A fault or a repair has just happened.
	void changed(std::size_t fault, bool stands)
	{
		const bool rested = m_wellAt != kNoTime && m_world.now() - m_changedAt > generalBound();
		const std::string_view name = m_schedule.at(fault).kind->name;
		const bool rechecks = !stands && (name == "host-freeze" || name == "service-interface");
		m_recheckAt.at(m_schedule.at(fault).node) =
		    rechecks ? m_world.now() : m_recheckAt.at(m_schedule.at(fault).node);
		m_standing.at(fault) = stands;
		const bool alone = rested && std::ranges::count(m_standing, true) == (stands ? 1 : 0);
		const Micros ownBound = m_schedule.at(fault).kind->bound(m_world.profile);
		m_bound = alone && ownBound > 0 ? ownBound : generalBound();
		m_undisturbed = alone && stands && keepsOwner(m_schedule.at(fault)) ? owner() : hostNone;
		m_rolesCount = m_undisturbed == hostNone || knownOf(m_schedule.at(fault)) != Known::owned;
		m_changedAt = m_world.now();
		m_wellAt = kNoTime;
		m_survivable = !m_operators && survivable();
	}

	std::optional<Violation> violation;
	Micros settled = 0;
	bool leftAddress = false;

private:
	/// For how long something has been so; what is not so any more begins anew.
	struct Since
	{
		Micros at = kNoTime;
		Micros holds(bool is, Micros now)
		{
			at = is ? std::min(at, now) : kNoTime;
			return is ? now - at : 0;
		}
	};

	void look()
	{
		blame("at-rest", ++m_events > kMostEvents, "something runs without a pause");
		const bool both = held(hostA) && held(hostB);
		const bool plain = isPlain();
		const Micros split = m_split.holds(both && splitCounts(plain), m_world.now());
		blame("one-owner", split > (plain ? kPlainSplit : splitLimit), "both nodes hold the address");
		for (Node& node : m_world.nodes)
		{
			const bool left = m_left.at(node.id).holds(held(node.id) && leftBehind(node), m_world.now()) > kLeft;
			leftAddress = leftAddress || left;
			m_operators = m_operators || left || node.spoiltRan;
			m_survivable = m_survivable && !m_operators;
			const bool counts =
			    !plain && node.on && !node.frozen && !node.slow && !node.address && m_world.serves(node);
			const bool orphan = counts && m_killsService && m_world.find(node, kSupervisor) == nullptr;
			// A standby's agent does not look for its programs.
			const bool looks = orphan && agentRuns(node) && *node.role == MODE_MASTER;
			const Micros without = m_without.at(node.id).holds(counts && !orphan, m_world.now());
			const Micros orphaned = m_orphaned.at(node.id).holds(looks, m_world.now());
			blame("service-with-address",
			      without > kUnaddressed + std::min(m_world.stopTime, kStopTimeout) || orphaned > kAgentLooks,
			      "a program runs without the address");
			const bool tells = node.role == nullptr || node.loggedRole == nullptr || *node.role == *node.loggedRole;
			blame("log",
			      m_unreported.at(node.id).holds(!tells && !node.slow && agentRuns(node), m_world.now()) > kUnreported,
			      "an agent's log tells another role than it has");
			blame("threads", node.threadEnded, "a worker or the agent has ended");
		}
		lookWhetherServed();
	}

	/// Called with each state that ha-address publishes.
	void judgeHolder(const Node& node, const std::string& state)
	{
		const bool entered = std::exchange(m_holderStates.at(node.id), state) != state;
		blame("asks-first", entered && state == "announcing" && node.probesSinceAsked < kQuietProbes,
		      "a node raises the address for which the other one asks");
		const bool asked = m_recheckAt.at(node.id) != kNoTime && m_world.now() - m_recheckAt.at(node.id) < kRecheck;
		blame("defended", entered && state == "yielded" && node.keeperSettings.address.defend && !asked,
		      "the configured master yields");
	}

	void lookWhetherServed()
	{
		const Micros now = m_world.now();
		const char* trouble = whatIsWrong();
		const bool disturbed = m_undisturbed != hostNone && (trouble != nullptr || owner() != m_undisturbed);
		blame("undisturbed", disturbed && !m_operators, trouble == nullptr ? "another owner" : trouble);
		if (trouble != nullptr)
		{
			m_wellAt = kNoTime;
			blame(trouble == kRoles ? "one-master" : "served", m_survivable && now - m_changedAt > m_bound, trouble);
		}
		else if (m_wellAt == kNoTime)
		{
			m_wellAt = now;
			settled = m_survivable ? std::max(settled, now - m_changedAt) : settled;
		}
	}

	/// @return null for nothing
	const char* whatIsWrong() const
	{
		if (heard(hostA) == heard(hostB))
		{
			return heard(hostA) ? "two owners" : "no owner";
		}
		if (m_world.answers() != owner())
		{
			return "the client has no answer from the owner";
		}
		const auto master = [this](Host host)
		{
			const Node& node = m_world.nodes.at(host);
			return node.on && !node.frozen && node.role != nullptr && *node.role == MODE_MASTER;
		};
		const bool tells = master(owner()) && !master(owner() == hostA ? hostB : hostA);
		return tells || !m_rolesCount ? nullptr : kRoles;
	}

	Known knownOf(const Fault& fault) const { return fault.kind->known(m_world.profile); }

	bool isPlain() const { return m_world.profile == Profile::plain; }

	Micros generalBound() const { return isPlain() ? kPlainSettle : kKeeperSettle; }

	/// Of the two, when one holds the address.
	Host owner() const { return heard(hostA) ? hostA : hostB; }

	bool keepsOwner(const Fault& fault) const
	{
		const bool elsewhere = fault.node != owner() || !fault.kind->onNode;
		const Known known = knownOf(fault);
		return known == Known::owned || (known == Known::standing && elsewhere);
	}

	bool held(Host host) const { return m_world.nodes.at(host).owns(); }

	/// The keeper of one that nobody hears cannot know of another holder.
	bool heard(Host host) const
	{
		return held(host) && (isPlain() || m_world.nodes.at(host).interfaces.at(serviceNetwork).carrier);
	}

	bool agentRuns(const Node& node) const
	{
		const Process* agent = m_world.find(node, kAgent);
		return agent != nullptr && !agent->stopped && node.role != nullptr;
	}

	bool hasFault(const char* name) const
	{
		return std::ranges::any_of(m_schedule,
		                           [name](const Fault& fault) { return std::strcmp(fault.kind->name, name) == 0; });
	}

	/// A standby on which not all programs run never tries to drop the address.
	bool leftBehind(const Node& node) const
	{
		return isPlain() && node.role != nullptr && *node.role == MODE_SLAVE && !m_world.serves(node);
	}

	bool splitCounts(bool plain) const
	{
		if (plain)
		{
			return m_survivable;
		}
		const auto& [a, b] = m_world.nodes;
		const auto hears = [&](const Node& node)
		{
			const Interface& interface = node.interfaces.at(serviceNetwork);
			const Process* holder = m_world.find(node, keeper::kAddressProgram);
			return interface.loss == 0 && interface.delay == 0 && !node.slow && holder != nullptr &&
			       holder->takesSignals;
		};
		return m_world.linked(serviceNetwork, hostA, hostB) && hears(a) && hears(b);
	}

	bool survivable() const
	{
		if (m_undisturbed != hostNone)
		{
			return true;
		}
		Host spoilt = hostNone;
		for (std::size_t i = 0; i < m_schedule.size(); ++i)
		{
			const Fault& fault = m_schedule.at(i);
			const bool alone = std::strcmp(fault.kind->name, "cold-start-alone") == 0;
			const Host where = alone ? m_world.other(m_world.node(fault.node)).id : fault.node;
			if (!m_standing.at(i))
			{
				continue;
			}
			const Known known = knownOf(fault);
			const bool passing = known == Known::passing || known == Known::standing || known == Known::owned ||
			                     (known == Known::gateways && fault.node == hostA);
			if (passing || (spoilt != hostNone && spoilt != where))
			{
				return false;
			}
			spoilt = where;
		}
		return true;
	}

	/// Called many times for each event: nothing is allocated before something is broken.
	void blame(const char* invariant, bool broken, const char* detail)
	{
		if (broken && !violation)
		{
			violation = Violation{invariant, m_world.now(), detail};
			m_world.scheduler.stop();
		}
	}

	World& m_world;
	std::vector<bool> m_standing;
	const Schedule& m_schedule;
	bool m_killsService;
	Since m_split;
	std::array<Since, 2> m_without;
	std::array<Since, 2> m_orphaned;
	std::array<Since, 2> m_left;
	std::array<Since, 2> m_unreported;
	std::array<std::string, 2> m_holderStates;
	std::array<Micros, 2> m_recheckAt{kNoTime, kNoTime}; ///< the carrier is back, or the host goes on
	Host m_undisturbed = hostNone;                       ///< who has to go on serving as if nothing stood
	Micros m_changedAt = 0;
	Micros m_bound = generalBound();
	Micros m_wellAt = kNoTime;
	bool m_survivable = true;
	bool m_rolesCount = true;
	bool m_operators = false;
	int m_events = 0;
};

/// Half of the schedules run in a fast world, with a program that ends when it is asked to.
void setPace(World& world, std::uint64_t seed)
{
	constexpr std::array<Micros, 4> kPaces{1, 1, 10, 100};
	constexpr std::array<Micros, 4> kStopTimes{0, 100 * kMilli, kSecond, 2 * kStopTimeout};
	Random random(~seed);
	world.pace = kPaces.at(static_cast<std::size_t>(random.below(std::ssize(kPaces))));
	world.stopTime = random.below(1 + kStopTimes.at(static_cast<std::size_t>(random.below(std::ssize(kStopTimes)))));
}

void plan(World& world, Judge& judge, Chronicle* chronicle, const Schedule& schedule)
{
	for (std::size_t i = 0; i < schedule.size(); ++i)
	{
		const Fault& fault = schedule.at(i);
		const auto change = [&world, &judge, chronicle, &fault, i](bool inject)
		{
			(inject ? fault.kind->inject : fault.kind->repair)(world, world.node(fault.node));
			judge.changed(i, inject && fault.kind->repair != nullptr);
			chronicle != nullptr ? chronicle->fault(fault, inject) : void();
		};
		world.scheduler.at(fault.at, [change] { change(true); });
		fault.until != kNoTime ? world.scheduler.at(fault.until, [change] { change(false); }) : void();
	}
}

} // namespace

Outcome run(const Schedule& schedule, Profile profile, std::uint64_t seed, bool withTimeline)
{
	World world(profile, seed ^ 0x5deece66dU, withTimeline);
	setPace(world, seed);
	Judge judge(world, schedule);
	std::optional<Chronicle> chronicle;
	withTimeline ? static_cast<void>(chronicle.emplace(world)) : void();
	for (Node& node : world.nodes)
	{
		world.scheduler.at(world.random.below(kSecond), [&world, &node] { world.powerOn(node); });
	}
	plan(world, judge, chronicle ? &*chronicle : nullptr, schedule);
	world.scheduler.run(kScheduleLength);
	world.observe = nullptr;
	world.published = nullptr;
	world.recording = false;
	return {judge.violation, chronicle ? chronicle->text() : "", judge.settled, judge.leftAddress};
}

Schedule minimised(Schedule schedule, Profile profile, std::uint64_t seed, const char* invariant)
{
	const auto fails = [&](const Schedule& tried)
	{
		const Outcome outcome = run(tried, profile, seed);
		return outcome.violation && std::strcmp(outcome.violation->invariant, invariant) == 0;
	};
	for (std::size_t i = 0; i < schedule.size();)
	{
		Schedule fewer = schedule;
		fewer.erase(fewer.begin() + static_cast<std::ptrdiff_t>(i));
		fails(fewer) ? schedule = fewer, i = 0 : ++i;
	}
	for (const Micros round : {kSecond, 100 * kMilli, 10 * kMilli, kMilli})
	{
		for (Fault& fault : schedule)
		{
			for (Micros Fault::*time : {&Fault::at, &Fault::until})
			{
				const Micros before = fault.*time;
				fault.*time = before == kNoTime ? before : before / round * round;
				fault.*time = fails(schedule) ? fault.*time : before;
			}
		}
	}
	return schedule;
}

} // namespace velarix::simulate
