#include <algorithm>
#include <cstdio>

#include <nlohmann/json.hpp>

#include "evidence/idle/IdleFigures.h"
#include "lab/core/Basics.h"
#include "lab/tables/Table.h"

namespace velarix::lab
{

namespace
{

using Json = nlohmann::ordered_json;

std::string decimal(double value, int places)
{
	char text[48];
	std::snprintf(text, sizeof text, "%.*f", places, value);
	return text;
}

/// Millions of bytes.
std::string megabytes(std::int64_t kibibytes)
{
	return decimal(static_cast<double>(kibibytes) * 1024 / 1e6, 1);
}

std::string packets(const CardRates& rates)
{
	return decimal(rates.received, 1) + " / " + decimal(rates.sent, 1);
}

const Row& head()
{
	static const Row titles{"guard",
	                        "node",
	                        "role",
	                        "own CPU s/h",
	                        "children",
	                        "announcer",
	                        "CPU %",
	                        "RSS MB",
	                        "PSS MB",
	                        "PSS alone",
	                        "threads",
	                        "wake-ups/s",
	                        "processes/s",
	                        "eth0 packets/s in / out",
	                        "eth1 packets/s in / out",
	                        "log MB/day"};
	return titles;
}

Row rowOf(const IdleFigures& node)
{
	return {node.guard + " (" + node.settings + ")",
	        node.node,
	        node.role,
	        decimal(node.ownCpuPerHour, 2),
	        decimal(node.childrenCpuPerHour, 2),
	        decimal(node.announcerCpuPerHour, 2),
	        decimal(node.cpuPercent(), 3),
	        megabytes(node.memory.resident),
	        megabytes(node.memory.proportional),
	        node.memoryAlone ? megabytes(node.memoryAlone->proportional) : "-",
	        std::to_string(node.threads),
	        decimal(node.wakeUps, 1),
	        decimal(node.newProcesses, 1),
	        packets(node.cards[0]),
	        packets(node.cards[1]),
	        decimal((node.logPerDay + node.consolePerDay) / 1e6, 2)};
}

Json jsonOf(const MemoryFigures& memory)
{
	return {
	    {"residentKiB", memory.resident}, {"proportionalKiB", memory.proportional}, {"ownPagesKiB", memory.ownPages}};
}

MemoryFigures memoryFrom(const Json& json)
{
	return {json.at("residentKiB").get<std::int64_t>(), json.at("proportionalKiB").get<std::int64_t>(),
	        json.at("ownPagesKiB").get<std::int64_t>()};
}

Json jsonOf(const CardRates& rates)
{
	return {{"receivedPerSecond", rates.received}, {"sentPerSecond", rates.sent}, {"bytesPerSecond", rates.bytes}};
}

CardRates ratesFrom(const Json& json)
{
	return {json.at("receivedPerSecond").get<double>(), json.at("sentPerSecond").get<double>(),
	        json.at("bytesPerSecond").get<double>()};
}

Json jsonOf(const IdleFigures& node)
{
	Json mappings = Json::object();
	for (const auto& [name, memory] : node.mappings)
	{
		mappings[name] = jsonOf(memory);
	}
	return {{"guard", node.guard},
	        {"settings", node.settings},
	        {"node", node.node},
	        {"role", node.role},
	        {"seconds", node.seconds},
	        {"windows", node.windows},
	        {"leastCpuPercent", node.leastCpu},
	        {"mostCpuPercent", node.mostCpu},
	        {"ownCpuSecondsPerHour", node.ownCpuPerHour},
	        {"childrenCpuSecondsPerHour", node.childrenCpuPerHour},
	        {"announcerCpuSecondsPerHour", node.announcerCpuPerHour},
	        {"cpuPercent", node.cpuPercent()},
	        {"ownCpuPercent", node.ownCpuPercent()},
	        {"wakeUpsPerSecond", node.wakeUps},
	        {"otherSwitchesPerSecond", node.switches},
	        {"newProcessesPerSecond", node.newProcesses},
	        {"threads", node.threads},
	        {"processes", node.processes},
	        {"eth0", jsonOf(node.cards[0])},
	        {"eth1", jsonOf(node.cards[1])},
	        {"logBytesPerDay", node.logPerDay},
	        {"consoleBytesPerDay", node.consolePerDay},
	        {"memory", jsonOf(node.memory)},
	        {"memoryAlone", node.memoryAlone ? jsonOf(*node.memoryAlone) : Json()},
	        {"mappings", std::move(mappings)}};
}

IdleFigures figuresFrom(const Json& json)
{
	IdleFigures node;
	node.guard = json.at("guard").get<std::string>();
	node.settings = json.at("settings").get<std::string>();
	node.node = json.at("node").get<std::string>();
	node.role = json.at("role").get<std::string>();
	node.seconds = json.at("seconds").get<double>();
	node.windows = json.at("windows").get<int>();
	node.leastCpu = json.at("leastCpuPercent").get<double>();
	node.mostCpu = json.at("mostCpuPercent").get<double>();
	node.ownCpuPerHour = json.at("ownCpuSecondsPerHour").get<double>();
	node.childrenCpuPerHour = json.at("childrenCpuSecondsPerHour").get<double>();
	node.announcerCpuPerHour = json.at("announcerCpuSecondsPerHour").get<double>();
	node.wakeUps = json.at("wakeUpsPerSecond").get<double>();
	node.switches = json.at("otherSwitchesPerSecond").get<double>();
	node.newProcesses = json.at("newProcessesPerSecond").get<double>();
	node.threads = json.at("threads").get<int>();
	node.processes = json.at("processes").get<int>();
	node.cards = {ratesFrom(json.at("eth0")), ratesFrom(json.at("eth1"))};
	node.logPerDay = json.at("logBytesPerDay").get<double>();
	node.consolePerDay = json.at("consoleBytesPerDay").get<double>();
	node.memory = memoryFrom(json.at("memory"));
	if (!json.at("memoryAlone").is_null())
	{
		node.memoryAlone = memoryFrom(json.at("memoryAlone"));
	}
	for (const auto& [name, memory] : json.at("mappings").items())
	{
		node.mappings[name] = memoryFrom(memory);
	}
	return node;
}

/// The largest mappings of the first node of a guard: where the memory is.
std::string mappingsText(const IdleFigures& node)
{
	std::vector<std::pair<std::string, MemoryFigures>> mappings(node.mappings.begin(), node.mappings.end());
	std::stable_sort(mappings.begin(), mappings.end(),
	                 [](const auto& one, const auto& other) { return one.second.resident > other.second.resident; });
	std::vector<Row> rows;
	rows.reserve(mappings.size());
	for (const auto& [name, memory] : mappings)
	{
		rows.push_back({name, std::to_string(memory.resident), std::to_string(memory.proportional),
		                std::to_string(memory.ownPages)});
	}
	return "\n" + node.guard + ", node " + node.node + ", KiB by what is mapped\n" +
	       aligned({"mapping", "resident", "proportional", "own pages"}, rows);
}

} // namespace

std::string toText(const IdleResults& results)
{
	std::vector<Row> rows;
	std::string memory;
	std::string last;
	for (const IdleFigures& node : results.nodes)
	{
		rows.push_back(rowOf(node));
		memory += node.guard != last ? mappingsText(node) : "";
		last = node.guard;
	}
	const double seconds = results.nodes.empty() ? 0 : results.nodes.front().seconds;
	const int windows = results.nodes.empty() ? 0 : results.nodes.front().windows;
	std::string text = results.machine + ", medians of " + std::to_string(windows) + " x " + decimal(seconds, 0) +
	                   " s\n\n" + aligned(head(), rows) + memory;
	for (const std::string& problem : results.problems)
	{
		text += "\nnot measured: " + problem + "\n";
	}
	return text;
}

std::string toJson(const IdleResults& results)
{
	return Json{{"machine", results.machine},
	            {"goals",
	             {{"residentBytes", idleGoal::resident},
	              {"proportionalBytes", idleGoal::proportional},
	              {"cpuPercent", idleGoal::cpuPercent}}},
	            {"nodes", Json::parse(toJson(results.nodes))},
	            {"problems", results.problems}}
	           .dump(1, '\t') +
	       "\n";
}

std::string toJson(const std::vector<IdleFigures>& all)
{
	Json list = Json::array();
	for (const IdleFigures& node : all)
	{
		list.push_back(jsonOf(node));
	}
	return list.dump();
}

std::vector<IdleFigures> idleFiguresFrom(const std::string& json)
try
{
	std::vector<IdleFigures> all;
	for (const Json& node : Json::parse(json))
	{
		all.push_back(figuresFrom(node));
	}
	return all;
}
catch (const nlohmann::json::exception& error)
{
	throw LabError(std::string("this is no measurement of idle nodes: ") + error.what());
}

} // namespace velarix::lab
