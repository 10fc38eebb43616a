#include "ctl/history/Events.h"

#include <cerrno>
#include <memory>
#include <optional>
#include <system_error>
#include <utility>

#include "ctl/history/Since.h"
#include "ctl/render/EventReport.h"
#include "ctl/render/StatusJson.h"
#include "ctl/verbs/Verb.h"
#include "ctl/verbs/Verbs.h"
#include "inspect/HostActions.h"
#include "inspect/LogReader.h"
#include "inspect/SettingsFile.h"
#include "inspect/SettingsKeys.h"

namespace velarix::ctl
{

using namespace inspect;

namespace
{

using namespace std::chrono_literals;

constexpr auto kLook = 200ms;

struct EventsOptions
{
	std::string since;
	std::string log;
	bool follow = false;
	bool json = false;
};

/// Which log, and by what its commands are known.
struct Wish
{
	std::filesystem::path log;
	Commands commands;
};

std::filesystem::path logOf(const SettingsFile& settings, const Context& context)
{
	const std::string path = settings.text(key::kLogPath).value_or("");
	if (path.empty())
	{
		throw Failure(ExitCode::settings, settings.path().string() + " has no LOG.PATH");
	}
	return context.paths.below(path);
}

/// The settings tell where the log is; a log that is named needs them no more.
Wish readWish(const EventsOptions& options, const Context& context)
{
	Wish wish{options.log, {}};
	try
	{
		const SettingsFile settings = SettingsFile::load(context.paths.settings);
		wish.commands = {settings.text(key::kStartCommand).value_or(""), settings.text(key::kStopCommand).value_or(""),
		                 settings.text(key::kKillCommand).value_or("")};
		wish.log = wish.log.empty() ? logOf(settings, context) : wish.log;
	}
	catch (const Failure& failure)
	{
		if (wish.log.empty())
		{
			throw Failure(failure.code(), std::string(failure.what()) + "; name the log with --log");
		}
	}
	return wish;
}

Instant readSince(const EventsOptions& options, const Context& context)
{
	if (options.since.empty())
	{
		return Instant::min();
	}
	const std::optional<Instant> since = parseSince(options.since, context.now());
	if (!since)
	{
		throw Failure(ExitCode::usage,
		              "--since \"" + options.since +
		                  "\" is no time: give a span (2h, 1.5h, 5 minutes ago), a date (2026-11-21 09:07) or a time "
		                  "of today (09:07)");
	}
	return *since;
}

/// Writes events and what could not be read.
class Printer
{
public:
	Printer(const EventsOptions& options, const Context& context, Instant since)
	    : m_json(options.json), m_context(context), m_since(since)
	{
	}

	/// @tparam Any an event of the agent or of the keeper
	template <typename Any> void print(const Any& event)
	{
		if (event.time < m_since)
		{
			return;
		}
		if (m_json)
		{
			m_context.out << jsonText(eventJson(event)) << '\n';
			return;
		}
		if (!std::exchange(m_begun, true))
		{
			m_context.out << textHeader() << '\n';
		}
		m_context.out << textLine(event, m_context.colour) << '\n';
	}

	void tell(const std::vector<LogTrouble>& trouble)
	{
		for (; m_reported < trouble.size(); ++m_reported)
		{
			tell(trouble[m_reported]);
		}
	}
	void tell(const LogTrouble& one) const
	{
		complain(m_context, "cannot read " + one.path.string() + ": " + std::generic_category().message(one.error));
	}

private:
	bool m_json;
	const Context& m_context;
	Instant m_since;
	bool m_begun = false;
	std::size_t m_reported = 0;
};

/// @return what a log of which nothing could be read means for the exit status
ExitCode unread(const std::vector<LogTrouble>& trouble)
{
	const bool forbidden = !trouble.empty() && trouble.back().error == EACCES;
	return forbidden ? ExitCode::noPermission : ExitCode::noInput;
}

ExitCode runEvents(const EventsOptions& options, const Context& context)
{
	const Instant since = readSince(options, context);
	const Wish wish = readWish(options, context);
	Printer printer(options, context, since);
	KeeperLog keeper(options.log.empty() ? context.paths.keeperLog : wish.log.parent_path() / "keeper.log");
	const auto printKeeper = [&](Instant until)
	{
		while (const std::optional<KeeperEvent> event = keeper.next(until))
		{
			printer.print(*event);
		}
	};
	const auto print = [&](const Event& event)
	{
		printKeeper(event.time);
		printer.print(event);
	};
	History history(print, wish.commands);
	LogReader reader(wish.log, since == Instant::min() ? std::nullopt : std::optional(since));
	bool anything = false;
	LogLine line;
	do
	{
		while (context.out && reader.next(line))
		{
			anything = true;
			history.feed(line);
		}
		printer.tell(reader.trouble());
		if (options.follow && context.out)
		{
			printKeeper(Instant::max());
			context.out << std::flush;
			host::pause(kLook);
		}
	} while (options.follow && context.out);
	while (reader.last(line))
	{
		anything = true;
		history.feed(line);
	}
	printKeeper(Instant::max());
	for (const LogTrouble& one : keeper.trouble())
	{
		printer.tell(one);
	}
	return anything || reader.trouble().empty() ? ExitCode::fine : unread(reader.trouble());
}

} // namespace

void addEvents(CLI::App& app, Context& context)
{
	const auto options = std::make_shared<EventsOptions>();
	Verb(app, "events", "what has happened on this node, reported from the log and its archives")
	    .option("--since", options->since, "TIME",
	            "begin there: a span (2h), a date (2026-11-21 09:07) or a time of today")
	    .flag("-f,--follow", options->follow, "go on with what happens from now on")
	    .flag("--json", options->json, "print an object of JSON a line")
	    .option("--log", options->log, "FILE", "read this log instead of the one that the settings name")
	    .run(context, [options, &context] { return runEvents(*options, context); });
}

} // namespace velarix::ctl
