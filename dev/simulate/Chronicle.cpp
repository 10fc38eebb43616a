#include "dev/simulate/Chronicle.h"

#include <utility>

#include "lab/core/LogWatch.h"

namespace velarix::simulate
{

namespace
{

lab::HostId idOf(const Node& node)
{
	return node.id == hostA ? lab::HostId::a : lab::HostId::b;
}

lab::Millis timeOf(const World& world)
{
	return lab::Millis(world.now() / kMilli);
}

} // namespace

Chronicle::Chronicle(World& world) : m_world(world)
{
	world.logged = [this](const Node& node, const char* label, int number)
	{
		inspect::LogLine line;
		line.label = label;
		line.number = number;
		const lab::LogMeaning* meaning = lab::meaningOf(line);
		if (meaning != nullptr && meaning->action != nullptr)
		{
			m_timeline.add({timeOf(m_world), lab::EventKind::action, idOf(node), meaning->action});
		}
	};
	world.journal = [this](const Node& node, const std::string& event) {
		m_timeline.add({timeOf(m_world), lab::EventKind::action, idOf(node), event});
	};
	world.observe = [this, before = std::move(world.observe)]
	{
		before();
		look();
	};
}

void Chronicle::fault(const Fault& fault, bool injected)
{
	m_timeline.add({timeOf(m_world), injected ? lab::EventKind::fault : lab::EventKind::repair, {}, nameOf(fault)});
}

void Chronicle::look()
{
	for (const Node& node : m_world.nodes)
	{
		const Process* agent = m_world.find(node, kAgent);
		const bool frozen = node.frozen || (agent != nullptr && agent->stopped);
		const char* role = node.loggedRole == nullptr ? nullptr : *node.loggedRole == MODE_MASTER ? "master" : "slave";
		role = !node.on ? "off" : frozen ? "frozen" : agent == nullptr ? "no agent" : role;
		role != nullptr ? m_timeline.change(lab::roleTrack(idOf(node)), timeOf(m_world), role) : void();
	}
	const Host answer = m_world.answers();
	m_timeline.change(lab::addressTrack, timeOf(m_world), m_world.owners());
	m_timeline.change(lab::serviceTrack, timeOf(m_world), answer == hostNone ? "none" : answer == hostA ? "a" : "b");
}

} // namespace velarix::simulate
