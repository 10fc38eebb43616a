#include "lab/core/FaultTables.h"

#include <algorithm>
#include <filesystem>

#include "lab/core/Lab.h"

namespace velarix::lab
{

const std::vector<FaultInfo>& allFaults()
{
	static const std::vector<FaultInfo> faults = []
	{
		std::vector<FaultInfo> all;
		for (const std::span<const FaultInfo> table : {hostFaults(), serviceFaults(), networkFaults()})
		{
			all.insert(all.end(), table.begin(), table.end());
		}
		return all;
	}();
	return faults;
}

const FaultInfo& infoOf(const std::string& name)
{
	const auto found = std::ranges::find_if(allFaults(), [&](const FaultInfo& info) { return name == info.name; });
	refuse(found == allFaults().end(), "there is no fault \"" + name + "\"");
	return *found;
}

std::string toName(const Fault& fault)
{
	return fault.name + (infoOf(fault.name).onNode ? std::string(":") + nameOf(fault.node) : std::string());
}

Fault faultFrom(const std::string& text)
{
	const std::size_t colon = text.find(':');
	Fault fault{text.substr(0, colon)};
	const bool nodeGiven = colon != std::string::npos;
	const bool onNode = infoOf(fault.name).onNode;
	refuse(nodeGiven && !onNode, fault.name + " is on no single node");
	refuse(onNode && !nodeGiven, fault.name + " needs a node, for example " + fault.name + ":a");
	if (nodeGiven)
	{
		const std::optional<HostId> node = hostNamed(text.substr(colon + 1));
		refuse(!node || !isNode(*node), "\"" + text + "\" names no node (a or b)");
		fault.node = *node;
	}
	return fault;
}

void nodeOn(Lab& lab, HostId node)
{
	lab.node(node).host();
}

/// A file with the number of its session's first process, which leads a group of all that it starts.
bool jobUnderWay(const Host& host, const std::string& name)
{
	return std::filesystem::exists(host.root() / "run" / name);
}

void startJob(const Host& host, const std::string& name, const std::vector<std::string>& argv)
{
	refuse(jobUnderWay(host, name), "this is done already: " + name);
	// Until there is the group that endJob looks for.
	const std::string start = "cd /run; setsid \"$@\" >" + name + ".says 2>&1 & echo $! >/run/" + name +
	                          "; while kill -0 $! && ! kill -0 -- -$!; do sleep 0.01; done 2>/dev/null";
	std::vector<std::string> words{"bash", "-ec", start, "bash"};
	words.insert(words.end(), argv.begin(), argv.end());
	runOrThrow({words, {}, host.inside()});
}

void endJob(const Host& host, const std::string& name)
{
	refuse(!jobUnderWay(host, name), "this is not being done: " + name);
	shell(host, "cd /run; job=$(cat " + name + "); rm " + name +
	                "; kill -0 -- -$job 2>/dev/null || { echo had ended by itself; cat " + name +
	                ".says; exit 1; }; while kill -KILL -- -$job 2>/dev/null; do sleep 0.02; done");
}

} // namespace velarix::lab
