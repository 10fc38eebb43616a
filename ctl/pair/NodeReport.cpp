#include "ctl/pair/PairReport.h"

#include <cstdlib>

#include <Poco/DigestEngine.h>
#include <Poco/SHA1Engine.h>
#include <Poco/String.h>
#include <nlohmann/json.hpp>

#include "ctl/history/EventStream.h"
#include "inspect/InputFile.h"
#include "inspect/Pattern.h"
#include "inspect/SettingsKeys.h"

namespace velarix::ctl
{

namespace
{

constexpr std::size_t kMostEvents = 200;
constexpr std::size_t kDigestLetters = 12;

/// What is the node's own, and not the pair's.
constexpr std::array<std::string_view, 11> kOwn{
    key::kMode,         key::kThisServerIP,     key::kReceivePort,     key::kPartnerIP,
    key::kPartnerPort,  key::kLogPath,          key::kPurgeAge,        "ADDRESS.ON_CONFLICT",
    "REACHABILITY.OWN", "REACHABILITY.PARTNER", "REACHABILITY.TARGETS"};
constexpr std::string_view kOwnEnding = "INTERFACE";

constexpr std::array kReported{EventKind::agentStarted,       EventKind::agentEnded, EventKind::roleChanged,
                               EventKind::takeOverDone,       EventKind::askMade,    EventKind::faultFound,
                               EventKind::takeOverUnfinished, EventKind::partnerLost};

std::string digest(const std::string& value)
{
	Poco::SHA1Engine engine;
	engine.update(value);
	return Poco::DigestEngine::digestToHex(engine.digest()).substr(0, kDigestLetters);
}

void addSettings(Json& json, const SettingsFile& file, const std::string& prefix)
{
	for (const SettingLine& line : file.lines())
	{
		const std::string name = Poco::toUpper(line.key);
		const bool own = std::ranges::any_of(kOwn, [&](std::string_view one) { return sameKey(one, name); });
		if (!own && !name.ends_with(kOwnEnding))
		{
			json[prefix + name] = digest(file.text(line.key).value_or(line.value));
		}
	}
}

Json settingsJson(const NodeState& state, const Paths& paths)
{
	Json json = Json::object();
	if (state.settings)
	{
		addSettings(json, *state.settings, "");
	}
	if (state.keeper)
	{
		try
		{
			addSettings(json, SettingsFile::load(paths.keeperSettings), "keeper.ini ");
		}
		catch (const Failure&)
		{
			json["keeper.ini"] = "cannot be read";
		}
	}
	return json;
}

Json eventsJson(const NodeState& state, const Paths& paths)
{
	Json json = Json::array();
	if (!state.settings || state.log.empty())
	{
		return json;
	}
	const Instant since = state.now - kReportedEvents;
	const auto take = [&](const Event& event)
	{
		if (event.time < since || std::ranges::find(kReported, event.kind) == kReported.end())
		{
			return;
		}
		Json one = eventJson(event);
		one["severity"] = severityOf(event);
		one["time_ms"] = std::chrono::duration_cast<std::chrono::milliseconds>(event.time.time_since_epoch()).count();
		json.push_back(std::move(one));
		if (json.size() > kMostEvents)
		{
			json.erase(0);
		}
	};
	EventStream(EventSource::of(paths), since, take, [](const KeeperEvent&) {}).read();
	return json;
}

const Json* find(const Json& report, const char* place)
{
	const Json::json_pointer pointer(place);
	return report.contains(pointer) ? &report.at(pointer) : nullptr;
}

constexpr char kVariable[] = "VELARIX_PARTNER_SSH";

std::string ofService(const Paths& paths)
{
	static const inspect::Pattern line(R"((?:^|\n)\s*VELARIX_PARTNER_SSH=["']?([^"'\s#]*))");
	const std::filesystem::path file = paths.below("/etc/default/velarix-ha");
	const bool missing = host::fileFacts(file).kind == host::FileKind::missing;
	const inspect::Pattern::Groups found = line.found(missing ? "" : readInputFile(file));
	return found.empty() ? "" : found[1];
}

std::string targetFrom(const std::string& option, const Paths& paths)
{
	const char* variable = std::getenv(kVariable);
	std::string target = !option.empty() ? option : variable != nullptr ? variable : ofService(paths);
	if (target.empty())
	{
		target = SettingsFile::load(paths.settings).text(key::kPartnerIP).value_or("");
	}
	if (target.empty())
	{
		throw Failure(ExitCode::settings, "nothing tells where the partner is; name it with --ssh");
	}
	if (target.starts_with('-'))
	{
		throw Failure(ExitCode::usage, "\"" + target + "\" is no ssh target");
	}
	return target;
}

} // namespace

Json pairJson(const NodeState& state, const Paths& paths)
{
	return {{"version", VELARIX_VERSION},
	        {"time_ms", std::chrono::duration_cast<std::chrono::milliseconds>(state.now.time_since_epoch()).count()},
	        {"settings", settingsJson(state, paths)},
	        {"events", eventsJson(state, paths)}};
}

std::string textAt(const Json& report, const char* place)
{
	const Json* found = find(report, place);
	return found != nullptr && found->is_string() ? found->get<std::string>() : std::string();
}

std::int64_t numberAt(const Json& report, const char* place)
{
	const Json* found = find(report, place);
	return found != nullptr && found->is_number_integer() ? found->get<std::int64_t>() : 0;
}

const Json& listAt(const Json& report, const char* place)
{
	static const Json none = Json::array();
	const Json* found = find(report, place);
	return found != nullptr && found->is_array() ? *found : none;
}

bool isAt(const Json& report, const char* place, bool value)
{
	const Json* found = find(report, place);
	return found != nullptr && *found == value;
}

std::string nameOf(const Json& report)
{
	const std::string host = textAt(report, "/host");
	const std::string node = textAt(report, "/node");
	return host.empty() || node.empty() ? host + node : host + " (" + node + ")";
}

std::string lastRoleOf(const Json& report)
{
	const std::string now = textAt(report, "/role/value");
	return now.empty() ? textAt(report, "/role/reported") : now;
}

Partner::Partner(const std::string& target, std::chrono::milliseconds limit, const Paths& paths)
    : m_target(targetFrom(target, paths)), m_limit(limit)
{
}

host::ProgramEnd Partner::run(const std::vector<std::string>& words) const
{
	std::string command = "velarixctl";
	for (const std::string& word : words)
	{
		const bool plain =
		    !word.empty() && word.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-") == word.npos;
		// The shell of the partner gets the words as they are.
		command += plain ? " " + word : " '" + Poco::replace(word, std::string("'"), std::string("'\\''")) + "'";
	}
	const std::string patience = std::to_string(std::max<long>(m_limit.count() / 2000, 1));
	return host::runProgram(
	    {{"ssh", "-o", "BatchMode=yes", "-o", "ConnectTimeout=" + patience, "--", m_target, command}, {}, {}, m_limit});
}

Json Partner::status(const NodeState& own, std::string& why) const
{
	const host::ProgramEnd end = run({"status", "--json"});
	Json report = Json::parse(end.inTime ? end.output : "", nullptr, false);
	if (!report.is_object())
	{
		why = "ssh " + m_target + " " + end.reason();
		return {};
	}
	if (textAt(report, "/node") != own.setting(key::kPartnerIP) ||
	    textAt(report, "/partner/address") != own.setting(key::kThisServerIP))
	{
		why = m_target + " is " + nameOf(report) + ", and not this node's partner";
		return {};
	}
	return report;
}

} // namespace velarix::ctl
