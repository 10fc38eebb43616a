#include "ctl/notify/Notifiers.h"

#include <cstring>

#include <Poco/String.h>
#include <nlohmann/json.hpp>

#include <sys/stat.h>

#include "ctl/OutputFile.h"
#include "ctl/history/EventStream.h"
#include "inspect/Host.h"
#include "inspect/InputFile.h"
#include "inspect/SettingsFile.h"
#include "inspect/SettingsKeys.h"
#include "inspect/TimeText.h"

namespace velarix::ctl::notify
{

namespace fs = std::filesystem;

namespace
{

constexpr mode_t kExecutable = S_IXUSR | S_IXGRP | S_IXOTH;
constexpr mode_t kOpen = S_IWGRP | S_IWOTH;

constexpr char kLetters[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_";

/// @return who else than root may change the file or put another one in its place
std::string distrust(const fs::path& file)
{
	for (fs::path path = file;; path = path.parent_path())
	{
		const host::FileFacts facts = host::fileFacts(path);
		// In a directory like /tmp nobody replaces what is not theirs.
		const bool sticky = facts.kind == host::FileKind::directory && (facts.mode & S_ISVTX) != 0;
		if (facts.owner != 0 || ((facts.mode & kOpen) != 0 && !sticky))
		{
			return path.string() + (facts.owner != 0 ? " is not root's" : " may be written by others than root");
		}
		if (path == path.parent_path())
		{
			return {};
		}
	}
}

using namespace std::chrono_literals;
using std::chrono::milliseconds;

constexpr std::size_t kMostBehind = 1000;
constexpr auto kLook = 200ms;
constexpr milliseconds kFirstRetry = 1s;
constexpr milliseconds kLastRetry = 1min;
/// Nobody wants to be woken up by what was yesterday.
constexpr auto kTooOld = 24h;
/// Of sysexits.h: the event is at fault, and would be at every try.
constexpr int kBadEvent = 65;

/// An event on its way.
struct Message
{
	/// When it became known.
	Instant at;
	Json json;

	/// What it is found by when the logs are read again; how long it took is no part of it,
	/// since that depends on how much of the logs is still there.
	std::string identity() const
	{
		std::string text;
		for (const char* member : {"time", "event", "pid", "place", "subject", "word"})
		{
			text += json.contains(member) ? jsonText(json[member]) + " " : "";
		}
		return text;
	}
};

/// While a worker catches up: the events of one log that come behind the last one that was taken, or
/// should that one not be in the log, those from its time on.
struct Resumption
{
	/// The last event that was taken; without an identity: begin with what comes after `at`.
	Instant at;
	std::string identity;

	bool found = false;
	std::deque<Message> behind;
	/// How many were too many to keep, the oldest.
	std::size_t dropped = 0;

	void keep(const Message& message)
	{
		if (!found && message.identity() == identity)
		{
			found = true;
			behind.clear();
			dropped = 0;
		}
		else if (found || message.at >= at)
		{
			behind.push_back(message);
			if (behind.size() > kMostBehind)
			{
				behind.pop_front();
				++dropped;
			}
		}
	}

	Json json() const
	{
		return {{"time", std::chrono::duration_cast<milliseconds>(at.time_since_epoch()).count()}, {"event", identity}};
	}
	void take(const Json& mark)
	{
		at = Instant(milliseconds(mark.at("time").get<std::int64_t>()));
		identity = mark.at("event").get<std::string>();
	}
};

class Worker
{
public:
	Worker(const Notifier& notifier, milliseconds limit, const Context& context)
	    : m_notifier(notifier), m_limit(limit), m_context(context), m_node(nodeOf(context)),
	      m_file(context.paths.below(kPositions) / notifier.name)
	{
		begin();
		m_stream.emplace(
		    EventSource::of(context.paths), std::max(std::min(m_agent.at, context.now()), context.now() - kTooOld),
		    [this](const Event& event) { take(m_agent, m_stream->at(), eventJson(event), severityOf(event)); },
		    [this](const KeeperEvent& event) { take(m_keeper, event.time, eventJson(event), severityOf(event)); });
	}

	[[noreturn]] void run()
	{
		read();
		for (const Resumption* log : {&m_agent, &m_keeper})
		{
			if (log->dropped > 0)
			{
				say(std::to_string(log->dropped) + " older events are dropped: too many have happened meanwhile");
			}
		}
		// What the two logs report of the time without this process comes at once: in one order.
		const auto next = [](const Resumption& log)
		{ return log.behind.empty() ? Instant::max() : log.behind.front().at; };
		while (!m_agent.behind.empty() || !m_keeper.behind.empty())
		{
			Resumption& log = next(m_agent) <= next(m_keeper) ? m_agent : m_keeper;
			pass(log.behind.front(), log);
			log.behind.pop_front();
		}
		m_catchesUp = false;
		for (;;)
		{
			host::pause(kLook);
			read();
		}
	}

private:
	const Notifier& m_notifier;
	const milliseconds m_limit;
	const Context& m_context;
	const std::string m_node;
	const std::filesystem::path m_file;
	Resumption m_agent;
	Resumption m_keeper;
	bool m_catchesUp = true;
	std::optional<EventStream> m_stream;
	/// How many of the troubles of each log were reported.
	std::size_t m_agentTroubles = 0;
	std::size_t m_keeperTroubles = 0;

	void read()
	{
		m_stream->read();
		m_stream->readKeeper();
		for (auto [troubles, reported] : {std::pair(&m_stream->trouble(), &m_agentTroubles),
		                                  std::pair(&m_stream->keeperTrouble(), &m_keeperTroubles)})
		{
			for (; *reported < troubles->size(); ++*reported)
			{
				const LogTrouble& one = (*troubles)[*reported];
				say("cannot read " + one.path.string() + ": " + std::strerror(one.error));
			}
		}
	}

	/// A notifier that is new here is spared the past.
	void begin()
	{
		try
		{
			if (host::fileFacts(m_file).kind != host::FileKind::missing)
			{
				const Json json = Json::parse(readInputFile(m_file), nullptr, false);
				m_agent.take(json.at("agent"));
				m_keeper.take(json.at("keeper"));
				return;
			}
		}
		catch (const Json::exception&)
		{
			say(m_file.string() + " is damaged; it goes on from now");
		}
		catch (const Failure& failure)
		{
			say(std::string(failure.what()) + "; it goes on from now");
		}
		Resumption fresh;
		// The log's times are cut to tenths of a second.
		fresh.at = std::chrono::floor<std::chrono::duration<long, std::deci>>(m_context.now());
		m_agent = m_keeper = fresh;
		remember();
	}

	/// On a full disk it goes on all the same: a new start gives the last events again.
	void remember() const
	{
		try
		{
			replaceFile(m_file, jsonText(Json{{"agent", m_agent.json()}, {"keeper", m_keeper.json()}}) + "\n");
		}
		catch (const Failure& failure)
		{
			say(failure.what());
		}
	}

	void say(const std::string& text) const { complain(m_context, m_notifier.name + ": " + text); }

	void take(Resumption& log, Instant at, Json event, std::string_view severity)
	{
		const Message message{at, withNode(std::move(event), m_node, severity)};
		m_catchesUp ? log.keep(message) : pass(message, log);
	}

	void pass(const Message& message, Resumption& log)
	{
		for (milliseconds wait = kFirstRetry; !isDone(message, wait); wait = std::min(2 * wait, kLastRetry))
		{
			host::pause(wait);
		}
		log.at = message.at;
		log.identity = message.identity();
		remember();
	}

	/// @param wait until the next try, for the diagnostics
	bool isDone(const Message& message, milliseconds wait) const
	{
		const std::string what = message.json["event"].get<std::string>() + " of " + localText(message.at);
		if (m_context.now() - message.at > kTooOld)
		{
			say(what + " was not taken for a day and is dropped");
			return true;
		}
		const host::ProgramEnd end = deliver(m_notifier, message.json, m_limit);
		if (end.fine())
		{
			return true;
		}
		const bool bad = end.inTime && end.status == kBadEvent;
		say(what + ": " + end.reason() + (bad ? "; it is dropped" : "; the next try follows in " + spanText(wait)));
		return bad;
	}
};

} // namespace

std::vector<Notifier> notifiersIn(const fs::path& directory)
{
	std::vector<Notifier> all;
	std::error_code error;
	for (const fs::directory_entry& entry : fs::directory_iterator(directory, error))
	{
		const std::string name = entry.path().filename();
		const fs::path target = fs::canonical(entry.path(), error);
		const host::FileFacts facts = host::fileFacts(entry.path());
		if (name.find_first_not_of(kLetters) == name.npos && !error && facts.kind == host::FileKind::regular &&
		    (facts.mode & kExecutable) != 0)
		{
			const std::string place = distrust(fs::canonical(directory, error));
			all.push_back({name, entry.path(), place.empty() ? distrust(target) : place});
		}
	}
	std::ranges::sort(all, {}, &Notifier::name);
	return all;
}

std::string nodeOf(const Context& context)
{
	return SettingsFile::load(context.paths.settings).text(key::kThisServerIP).value_or("");
}

Json withNode(Json event, const std::string& node, std::string_view severity)
{
	event["severity"] = severity;
	event["host"] = host::name();
	event["node"] = node;
	return event;
}

host::ProgramEnd deliver(const Notifier& notifier, const Json& event, milliseconds limit)
{
	host::ProgramCall call{{notifier.path.string()}, {}, jsonText(event) + "\n", limit};
	for (const auto& [name, value] : event.items())
	{
		const std::string text = value.is_string() ? value.get<std::string>() : jsonText(value);
		call.environment.push_back("VELARIX_" + Poco::toUpper(name) + "=" + text);
	}
	return host::runProgram(call);
}

void work(const Notifier& notifier, milliseconds limit, const Context& context)
{
	Worker(notifier, limit, context).run();
}

} // namespace velarix::ctl::notify
