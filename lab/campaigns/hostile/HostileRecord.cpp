#include "lab/campaigns/hostile/HostileRecord.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "lab/core/TextTable.h"

namespace velarix::lab
{

namespace
{

using Json = nlohmann::json;

Json vitalsJson(const AgentVitals& agent)
{
	return {{"pid", agent.pid},
	        {"threads", agent.threads},
	        {"descriptors", agent.descriptors},
	        {"residentKib", agent.residentKib}};
}

AgentVitals vitalsFrom(const Json& json)
{
	return {json.at("pid"), json.at("threads"), json.at("descriptors"), json.at("residentKib")};
}

Json momentJson(const PairMoment& moment)
{
	return {{"roles", moment.roles}, {"agents", {vitalsJson(moment.agents[0]), vitalsJson(moment.agents[1])}}};
}

PairMoment momentFrom(const Json& json)
{
	return {json.at("roles"), {vitalsFrom(json.at("agents").at(0)), vitalsFrom(json.at("agents").at(1))}};
}

Json recordJson(const HostileRecord& record)
{
	return {{"name", record.name},
	        {"guard", record.guard},
	        {"sent",
	         {{"tries", record.tries},
	          {"connections", record.connections},
	          {"messages", record.messages},
	          {"bytes", record.bytes},
	          {"atOnce", record.atOnce},
	          {"open", record.open},
	          {"heard", record.heard}}},
	        {"words", record.words},
	        {"read", record.read},
	        {"partner", record.partner},
	        {"dropped", record.dropped},
	        {"before", momentJson(record.before)},
	        {"after", momentJson(record.after)},
	        {"rolesDuring", record.roles},
	        {"ownerDuring", record.during.owner},
	        {"duringMs", (record.during.to - record.during.from).count()},
	        {"noAnswerMs", record.during.noAnswer.count()},
	        {"moves", record.during.moves},
	        {"outageMs", record.during.outage.count()},
	        {"outageOpen", record.during.outageOpen},
	        {"twoOwnersMs", record.during.splitBrain.count()},
	        {"owner", record.owner},
	        {"differences", record.differences},
	        {"timeline", record.timeline}};
}

std::string pairText(const std::array<std::string, 2>& texts)
{
	return texts[0] + ", " + texts[1];
}

std::string change(long before, long after)
{
	return before == after ? std::to_string(before) : std::to_string(before) + ">" + std::to_string(after);
}

/// "lives 4 8 7300>7312 K": threads, descriptors, resident memory.
std::string agentText(const HostileRecord& record, std::size_t node)
{
	const AgentVitals& before = record.before.agents[node];
	const AgentVitals& after = record.after.agents[node];
	if (after.pid == 0)
	{
		return record.after.roles[node] == "off" ? "off" : "GONE";
	}
	return change(before.threads, after.threads) + " thr, " + change(before.descriptors, after.descriptors) + " fd, " +
	       change(before.residentKib, after.residentKib) + " K";
}

std::string outageText(const PhaseRecord& phase)
{
	return secondsText(phase.outage) + (phase.outageOpen && phase.outage > Millis(1000) ? ", for good" : "");
}

std::string sentText(const HostileRecord& record)
{
	return std::to_string(record.tries) + " / " + std::to_string(record.connections) + " / " +
	       std::to_string(record.messages);
}

Row rowOf(const HostileRecord& record)
{
	return {record.name,
	        sentText(record),
	        std::to_string(record.read) + " / " + std::to_string(record.partner),
	        std::to_string(record.dropped),
	        pairText(record.before.roles),
	        pairText(record.roles),
	        pairText(record.after.roles),
	        outageText(record.during),
	        secondsText(record.during.splitBrain),
	        agentText(record, 0),
	        agentText(record, 1),
	        record.differences.empty() ? "as expected" : "DIFFERS"};
}

const Row& head()
{
	static const Row titles{"case",
	                        "tries / connections / messages",
	                        "read / of the partner",
	                        "dropped",
	                        "before",
	                        "during",
	                        "after",
	                        "service away",
	                        "two owners",
	                        "agent a",
	                        "agent b",
	                        "verdict"};
	return titles;
}

std::vector<Row> rowsOf(const std::vector<HostileRecord>& records)
{
	std::vector<Row> rows(records.size());
	std::transform(records.begin(), records.end(), rows.begin(), rowOf);
	return rows;
}

} // namespace

std::string toJson(const HostileRecord& record)
{
	return recordJson(record).dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string toJson(const std::vector<HostileRecord>& records)
{
	Json all = Json::array();
	for (const HostileRecord& record : records)
	{
		all.push_back(recordJson(record));
	}
	return all.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

HostileRecord hostileRecordFrom(const std::string& text)
{
	try
	{
		const Json json = Json::parse(text);
		HostileRecord record;
		record.name = json.at("name");
		record.guard = json.at("guard");
		record.tries = json.at("sent").at("tries");
		record.connections = json.at("sent").at("connections");
		record.messages = json.at("sent").at("messages");
		record.bytes = json.at("sent").at("bytes");
		record.atOnce = json.at("sent").at("atOnce");
		record.open = json.at("sent").at("open");
		record.heard = json.at("sent").at("heard");
		record.words = json.at("words");
		record.read = json.at("read");
		record.partner = json.at("partner");
		record.dropped = json.at("dropped");
		record.before = momentFrom(json.at("before"));
		record.after = momentFrom(json.at("after"));
		record.roles = json.at("rolesDuring");
		record.during.owner = json.at("ownerDuring");
		record.during.to = Millis(json.at("duringMs").get<long>());
		record.during.noAnswer = Millis(json.at("noAnswerMs").get<long>());
		record.during.moves = json.at("moves");
		record.during.outage = Millis(json.at("outageMs").get<long>());
		record.during.outageOpen = json.at("outageOpen");
		record.during.splitBrain = Millis(json.at("twoOwnersMs").get<long>());
		record.owner = json.at("owner");
		record.differences = json.at("differences");
		record.timeline = json.at("timeline");
		return record;
	}
	catch (const Json::exception& error)
	{
		throw LabError(std::string("no record of an attack: ") + error.what());
	}
}

std::string toText(const std::vector<HostileRecord>& records)
{
	std::string text = aligned(head(), rowsOf(records));
	for (const HostileRecord& record : records)
	{
		for (const std::string& difference : record.differences)
		{
			text += record.name + ": " + difference + "\n";
		}
	}
	return text;
}

std::string toMarkdown(const std::vector<HostileRecord>& records)
{
	return markdownTable(head(), rowsOf(records));
}

} // namespace velarix::lab
