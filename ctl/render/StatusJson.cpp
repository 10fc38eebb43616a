#include "ctl/render/StateViews.h"

#include <nlohmann/json.hpp>

#include "inspect/Names.h"
#include "inspect/Printable.h"
#include "inspect/SettingsKeys.h"
#include "inspect/TimeText.h"

namespace velarix::ctl
{

namespace
{

/// Raised when a member goes or gets another meaning, not for a new one.
constexpr int kSchemaVersion = 1;

Json secondsOrNull(const std::optional<Milliseconds>& span)
{
	return span ? Json(inSeconds(*span)) : Json();
}

Json isoOrNull(const std::optional<Instant>& time)
{
	return time ? Json(isoText(*time)) : Json();
}

/// @param say makes the value's JSON
template <typename Value, typename Say = std::identity>
Json figureJson(const NodeState& state, const Figure<Value>& figure, Say say = {})
{
	Json json{{"value", figure.known() ? Json(say(*figure.reported)) : Json()}};
	if (figure.at)
	{
		json["age_seconds"] = secondsOrNull(state.age(figure));
	}
	if (figure.since && figure.known())
	{
		json["since"] = isoText(*figure.since);
	}
	if (!figure.known())
	{
		json["why"] = figure.why;
		if (figure.reported)
		{
			json["reported"] = say(*figure.reported);
		}
	}
	return json;
}

Json roleJson(const NodeState& state, const Figure<Role>& figure)
{
	return figureJson(state, figure, [](Role role) { return std::string(wordOf(role)); });
}

Json agentJson(const NodeState& state)
{
	const Agent& agent = state.agent;
	Json json{{"state", wordOf(agent.state)}, {"age_seconds", 0.0}};
	json["pid"] = agent.pid > 0 ? Json(agent.pid) : Json();
	json["threads"] = agent.lives() ? Json(agent.threads) : Json();
	json["since"] = isoOrNull(agent.since);
	if (!agent.text.empty())
	{
		json["why"] = agent.text;
	}
	return json;
}

Json partnerJson(const NodeState& state)
{
	return {{"address", state.setting(key::kPartnerIP)},
	        {"role", roleJson(state, state.partnerRole)},
	        {"programs_run", figureJson(state, state.partnerRuns)},
	        {"asks", figureJson(state, state.partnerAsks)},
	        {"heartbeat_received_age_seconds", secondsOrNull(state.age(state.heartbeat))},
	        {"heartbeat_sent_age_seconds", secondsOrNull(state.age(state.sent))}};
}

Json programsJson(const NodeState& state)
{
	const auto say = [](const Programs& programs)
	{
		Json each = Json::array();
		for (const ProgramCount& program : programs.each)
		{
			each.push_back({{"path", program.path},
			                {"name", program.name},
			                {"processes", program.processes},
			                {"executable", program.executable ? Json(*program.executable) : Json()}});
		}
		return Json{{"run", programs.run}, {"configured", programs.each.size()}, {"programs", std::move(each)}};
	};
	return figureJson(state, state.programs, say);
}

Json addressJson(const NodeState& state)
{
	const auto say = [](const HeldAddress& address)
	{
		return address.held ? Json{{"held", true},
		                           {"interface", address.interface},
		                           {"label", address.label},
		                           {"prefix", address.prefix},
		                           {"listed", address.listed}}
		                    : Json{{"held", false}};
	};
	Json json{{"address", state.setting(key::kVirtualIP)}};
	json.update(figureJson(state, state.address, say));
	return json;
}

Json reachJson(const KeeperProgram& reach)
{
	Json targets = Json::array();
	for (const keeper::TargetState& target : reach.targets)
	{
		targets.push_back({{"address", target.address},
		                   {"state", target.state},
		                   {"since", isoText(Instant(std::chrono::seconds(target.since)))}});
	}
	return {{"state", reach.state},
	        {"since", isoOrNull(reach.since)},
	        {"partner", reach.partner.empty() ? Json() : Json(reach.partner)},
	        {"targets", std::move(targets)}};
}

Json keeperJson(const NodeState& state)
{
	const KeeperProgram& address = state.keeper->address;
	Json services = Json::array();
	for (const KeeperProgram& service : state.keeper->services)
	{
		services.push_back({{"name", service.name},
		                    {"state", service.state},
		                    {"since", isoOrNull(service.since)},
		                    {"restarts", service.restarts},
		                    {"check", service.check},
		                    {"reason", service.reason}});
	}
	Json json{{"address",
	           {{"state", address.state},
	            {"since", isoOrNull(address.since)},
	            {"holder", address.holder.empty() ? Json() : Json(address.holder)},
	            {"conflicts", address.conflicts}}},
	          {"services", std::move(services)},
	          {"marker", state.keeper->marked}};
	if (state.keeper->reach)
	{
		json["reachability"] = reachJson(*state.keeper->reach);
	}
	return json;
}

Json tunnelJson(const NodeState& state)
{
	const TunnelState& tunnel = *state.tunnel;
	Json json{{"present", tunnel.present}, {"down", tunnel.down}, {"endpoint", tunnel.settings.endpoint}};
	if (tunnel.session)
	{
		json["handshake_age_seconds"] = secondsOrNull(state.age(tunnel.session->handshake));
		json["received_bytes"] = tunnel.session->received;
		json["sent_bytes"] = tunnel.session->sent;
	}
	else
	{
		json["why"] = tunnel.why;
	}
	return json;
}

Json changeJson(const NodeState& state)
{
	const LastChange& change = state.lastChange;
	if (!change.event)
	{
		return {{"time", nullptr}, {"searched_to", isoOrNull(change.searchedTo)}};
	}
	return {{"time", isoText(change.event->time)},  {"age_seconds", secondsOrNull(state.age(change.event->time))},
	        {"from", wordOf(change.event->from)},   {"to", wordOf(change.event->to)},
	        {"cause", wordOf(change.event->cause)}, {"text", describe(*change.event)}};
}

Json logJson(const NodeState& state)
{
	Json json{{"path", state.log.empty() ? Json() : Json(state.log.string())},
	          {"age_seconds", secondsOrNull(state.age(state.snapshot().lastMessage))},
	          {"trusted", state.distrust.empty()},
	          {"free_bytes", state.logSpace.known() ? Json(*state.logSpace.reported) : Json()}};
	if (!state.distrust.empty())
	{
		json["why"] = state.distrust;
	}
	return json;
}

Json problemsJson(const Judgement& judgement)
{
	Json json = Json::array();
	for (const Problem& problem : judgement.problems)
	{
		json.push_back({{"id", problem.id},
		                {"severity", wordOf(problem.grade)},
		                {"blocks_fail_over", problem.blocks},
		                {"text", problem.text}});
	}
	return json;
}

void removeTimes(Json& json)
{
	for (const char* name :
	     {"time", "age_seconds", "since", "searched_to", "why", "text", "reasons", "heartbeat_received_age_seconds",
	      "heartbeat_sent_age_seconds", "free_bytes", "handshake_age_seconds", "received_bytes", "sent_bytes"})
	{
		if (json.is_object())
		{
			json.erase(name);
		}
	}
	for (Json& inner : json)
	{
		if (inner.is_structured())
		{
			removeTimes(inner);
		}
	}
}

} // namespace

Json statusJson(const NodeState& state, const Judgement& judgement)
{
	Json json{{"schema_version", kSchemaVersion}, {"time", isoText(state.now)}};
	json["host"] = state.elsewhere ? Json() : Json(state.host);
	json["node"] = state.settings ? Json(state.setting(key::kThisServerIP)) : Json();
	json["role"] = roleJson(state, state.role);
	json["own_network_ok"] = figureJson(state, state.networkOk);
	json["asks"] = figureJson(state, state.asking);
	json["agent"] = agentJson(state);
	json["maintenance"] = state.maintenance ? Json{{"since", isoText(state.maintenance->since)},
	                                               {"until", isoText(state.maintenance->until)},
	                                               {"reason", printable(state.maintenance->reason)}}
	                                        : Json();
	json["partner"] = partnerJson(state);
	json["programs"] = programsJson(state);
	json["virtual_ip"] = addressJson(state);
	if (state.keeper)
	{
		json["keeper"] = keeperJson(state);
	}
	if (state.tunnel)
	{
		json["tunnel"] = tunnelJson(state);
	}
	json["interfaces"] = {{kServiceInterface, figureJson(state, state.serviceInterface)},
	                      {kCommunicationInterface, figureJson(state, state.communicationInterface)}};
	json["gateway_answers"] = figureJson(state, state.gatewayAnswers);
	json["last_change"] = changeJson(state);
	json["log"] = logJson(state);
	json["fail_over"] = {{"works", judgement.failOverWorks ? Json(*judgement.failOverWorks) : Json()},
	                     {"reasons", judgement.reasons()}};
	json["problems"] = problemsJson(judgement);
	return json;
}

std::string jsonText(const Json& json, int indent)
{
	// In ASCII, since some terminals obey control characters beyond it, too.
	return json.dump(indent, ' ', true, Json::error_handler_t::replace);
}

Json withoutTimes(Json status)
{
	// A change there and back between two looks shows by its time alone.
	const Json changed = status["last_change"]["time"];
	removeTimes(status);
	status["last_change"]["time"] = changed;
	return status;
}

} // namespace velarix::ctl
