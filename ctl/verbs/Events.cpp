#include "ctl/history/EventStream.h"

#include <cerrno>
#include <memory>
#include <optional>
#include <system_error>
#include <utility>

#include "ctl/history/Since.h"
#include "ctl/render/EventReport.h"
#include "ctl/render/StateViews.h"
#include "ctl/verbs/Verb.h"
#include "ctl/verbs/Verbs.h"
#include "inspect/Host.h"

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
	Printer printer(options, context, since);
	EventStream stream(
	    EventSource::of(context.paths, options.log), since == Instant::min() ? std::nullopt : std::optional(since),
	    [&](const Event& event) { printer.print(event); }, [&](const KeeperEvent& event) { printer.print(event); });
	const auto wanted = [&] { return static_cast<bool>(context.out); };
	for (;;)
	{
		stream.read(wanted);
		printer.tell(stream.trouble());
		if (!options.follow || !context.out)
		{
			break;
		}
		stream.readKeeper();
		context.out << std::flush;
		host::pause(kLook);
	}
	stream.finish();
	stream.readKeeper();
	for (const LogTrouble& one : stream.keeperTrouble())
	{
		printer.tell(one);
	}
	return stream.anything() || stream.trouble().empty() ? ExitCode::fine : unread(stream.trouble());
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
