#include "lab/core/Fault.h"

#include <algorithm>

#include "lab/core/FaultTables.h"

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

} // namespace velarix::lab
