#include "lab/campaigns/soak/AgentSampler.h"

#include <algorithm>
#include <iterator>

#include "lab/core/Files.h"
#include "lab/core/Plan.h"
#include "lab/core/ProcessTable.h"

namespace velarix::lab::soak
{

namespace
{

constexpr int fewestLooks = 5;

std::vector<Process> zombieChildren(pid_t hostInit, pid_t parent)
{
	std::vector<Process> found = processesOf(hostInit);
	std::erase_if(found, [&](const Process& entry) { return entry.parent != parent || entry.state != 'Z'; });
	return found;
}

/// Bytes of the node's log, its archives and the console file.
std::uint64_t loggedOn(const Node& node)
{
	namespace fs = std::filesystem;
	std::uint64_t bytes = 0;
	std::error_code failure;
	for (const fs::directory_entry& entry : fs::directory_iterator(node.diskFile(plan::logFile).parent_path(), failure))
	{
		const std::uint64_t size = entry.file_size(failure);
		bytes += failure ? 0 : size;
	}
	return bytes;
}

/// Both are in the order of the descriptors' texts.
std::vector<std::string> inBoth(const std::vector<std::string>& left, const std::vector<std::string>& right)
{
	std::vector<std::string> both;
	std::set_intersection(left.begin(), left.end(), right.begin(), right.end(), std::back_inserter(both));
	return both;
}

std::vector<std::string> sortedDescriptorsOf(pid_t pid)
{
	std::vector<std::string> descriptors = descriptorsOf(pid);
	std::sort(descriptors.begin(), descriptors.end());
	return descriptors;
}

} // namespace

bool readProcess(pid_t pid, Sample& sample)
{
	const std::string memory = procText(pid, "smaps_rollup");
	const std::string status = procText(pid, "status");
	const auto anonymous = numberBehind(memory, "Anonymous");
	const auto swapped = numberBehind(memory, "Swap");
	const auto resident = numberBehind(memory, "Rss");
	const auto proportional = numberBehind(memory, "Pss");
	const auto threads = numberBehind(status, "Threads");
	if (!anonymous || !swapped || !resident || !proportional || !threads)
	{
		return false;
	}
	sample.ownKib = *anonymous + *swapped;
	sample.rssKib = *resident;
	sample.pssKib = *proportional;
	sample.threads = static_cast<int>(*threads);
	return true;
}

void AgentSampler::look(bool atRest)
{
	for (const HostId node : nodes)
	{
		look(node, atRest);
	}
}

void AgentSampler::sample(bool atRest)
{
	look(atRest);
	for (const HostId node : nodes)
	{
		sample(node, atRest);
	}
}

void AgentSampler::look(HostId node, bool atRest)
{
	Watched& watched = m_watched[static_cast<std::size_t>(node)];
	follow(node, watched);
	watched.wasAtRest = watched.wasAtRest && atRest;
	if (watched.pid != 0)
	{
		watchZombies(node, watched, atRest);
		watched.descriptors = inBoth(watched.descriptors, sortedDescriptorsOf(watched.pid));
		++watched.looks;
	}
}

/// An agent that is not the one of the last look begins a series.
void AgentSampler::follow(HostId node, Watched& watched)
{
	const std::optional<Process> agent = m_lab.node(node).agent();
	const pid_t pid = agent ? agent->pid : 0;
	if (pid == watched.pid)
	{
		return;
	}
	if (watched.pid != 0)
	{
		m_series[watched.series].ended = agent ? "the agent was started again" : "the agent has ended";
	}
	watched = Watched{};
	watched.pid = pid;
	if (agent)
	{
		watched.series = m_series.size();
		m_series.push_back({node, agent->pidInside, "", {}});
	}
}

void AgentSampler::watchZombies(HostId node, Watched& watched, bool atRest)
{
	const Millis now = m_lab.clock().now();
	std::map<pid_t, Millis> seen;
	for (const Process& zombie : zombieChildren(m_lab.node(node).host().pid(), watched.pid))
	{
		const auto before = watched.zombies.find(zombie.pid);
		seen[zombie.pid] = before == watched.zombies.end() || !atRest ? now : before->second;
		watched.oldestZombie = std::max(watched.oldestZombie, now - seen[zombie.pid]);
	}
	watched.zombies = std::move(seen);
}

void AgentSampler::sample(HostId node, bool atRest)
{
	Watched& watched = m_watched[static_cast<std::size_t>(node)];
	Sample sample;
	sample.at = m_lab.clock().now();
	sample.atRest = atRest;
	if (watched.pid == 0 || !readProcess(watched.pid, sample))
	{
		return;
	}
	std::vector<std::string> descriptors = sortedDescriptorsOf(watched.pid);
	sample.descriptors = static_cast<int>(descriptors.size());
	if (watched.wasAtRest && atRest && watched.looks >= fewestLooks)
	{
		sample.kept = static_cast<int>(inBoth(watched.descriptors, descriptors).size());
	}
	sample.zombies = static_cast<int>(watched.zombies.size());
	sample.oldestZombie = watched.oldestZombie;
	sample.logged = loggedOn(m_lab.node(node));
	m_series[watched.series].samples.push_back(sample);
	watched.descriptors = std::move(descriptors);
	watched.looks = 0;
	watched.wasAtRest = atRest;
	watched.oldestZombie = Millis(0);
}

} // namespace velarix::lab::soak
