#include <cerrno>
#include <iostream>

#include <nlohmann/json.hpp>

#include "ctl/history/Dates.h"
#include "ctl/history/EventStream.h"
#include "ctl/history/Explain.h"
#include "ctl/render/StateViews.h"
#include "ctl/verbs/Verbs.h"
#include "inspect/Host.h"

namespace velarix::ctl
{

namespace
{

using namespace std::chrono_literals;

constexpr auto kLook = 200ms;

std::optional<Instant> readSince(const EventsOptions& options, const Context& context)
{
	const std::optional<Instant> since = parseSince(options.since, context.now());
	if (!since && !options.since.empty())
	{
		throw Failure(ExitCode::usage,
		              "--since \"" + options.since +
		                  "\" is no time: give a span (2h, 1.5h, 5 minutes ago), a date (2026-11-21 09:07) or a time "
		                  "of today (09:07)");
	}
	return since;
}

/// Writes events.
struct Printer
{
	const EventsOptions& options;
	const Context& context;
	std::optional<Instant> since;
	bool begun = false;

	/// @tparam Any an event of the agent or of the keeper
	template <typename Any> void operator()(const Any& event)
	{
		if (since && event.time < *since)
		{
			return;
		}
		if (options.json)
		{
			context.out << jsonText(eventJson(event)) << '\n';
			return;
		}
		if (!std::exchange(begun, true))
		{
			context.out << textHeader() << '\n';
		}
		context.out << textLine(event, context.colour) << '\n';
	}
};

/// Writes what could not be read, from `reported` on.
void tell(const std::vector<LogTrouble>& trouble, std::size_t& reported, const Context& context)
{
	for (; reported < trouble.size(); ++reported)
	{
		const LogTrouble& one = trouble[reported];
		complain(context, "cannot read " + one.path.string() + ": " + std::generic_category().message(one.error));
	}
}

/// Explains one message after the other, each place once.
class Explainer
{
public:
	Explainer(const ExplainOptions& options, const Context& context) : m_json(options.json), m_context(context) {}

	void take(const std::string& message)
	{
		if (message.empty())
		{
			return;
		}
		const std::vector<Explanation> explanations = explain(message);
		if (explanations.empty())
		{
			m_known = false;
			complain(m_context, whyUnknown(message));
		}
		for (const Explanation& explanation : explanations)
		{
			if (m_reported.insert({explanation.row, explanation.otherText}).second)
			{
				print(explanation);
			}
		}
	}

	ExitCode result() const { return m_known ? ExitCode::fine : ExitCode::notAsWished; }

private:
	bool m_json;
	const Context& m_context;
	bool m_known = true;
	std::set<std::pair<const CatalogueRow*, bool>> m_reported;

	void print(const Explanation& explanation) const
	{
		if (m_json)
		{
			m_context.out << jsonText(explanationJson(explanation)) << '\n';
			return;
		}
		m_context.out << (m_reported.size() > 1 ? "\n" : "") << explanationText(explanation, m_context.colour);
	}
};

/// Reads a line and keeps no more of it than of a message.
/// @return false at the end
bool readLine(std::istream& in, std::string& line)
{
	line.clear();
	char c = 0;
	while (in.get(c) && c != '\n')
	{
		if (line.size() < kLongestText)
		{
			line += c;
		}
	}
	return in.good() || !line.empty();
}

} // namespace

ExitCode runEvents(const EventsOptions& options, const Context& context)
{
	const std::optional<Instant> since = readSince(options, context);
	Printer print{options, context, since};
	EventStream stream(EventSource::of(context.paths, options.log), since, std::ref(print), std::ref(print));
	std::size_t reported = 0;
	std::size_t keeperReported = 0;
	const auto wanted = [&] { return static_cast<bool>(context.out); };
	for (;;)
	{
		stream.read(wanted);
		tell(stream.trouble(), reported, context);
		tell(stream.keeperTrouble(), keeperReported, context);
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
	tell(stream.keeperTrouble(), keeperReported, context);
	return stream.anything() || stream.trouble().empty() ? ExitCode::fine
	       : stream.trouble().back().error == EACCES     ? ExitCode::noPermission
	                                                     : ExitCode::noInput;
}

ExitCode runExplain(const ExplainOptions& options, const Context& context)
{
	Explainer explainer(options, context);
	std::string message;
	if (options.words == std::vector<std::string>{"-"})
	{
		for (std::string line; readLine(std::cin, line);)
		{
			if (continues(message, line))
			{
				message += "\n" + line;
			}
			else
			{
				explainer.take(std::exchange(message, line));
			}
		}
		explainer.take(message);
		return explainer.result();
	}
	for (const std::string& word : options.words)
	{
		message += (message.empty() ? "" : " ") + word;
	}
	if (message.empty())
	{
		throw Failure(ExitCode::usage, "nothing to explain: MESSAGE is empty");
	}
	explainer.take(message);
	return explainer.result();
}

} // namespace velarix::ctl
