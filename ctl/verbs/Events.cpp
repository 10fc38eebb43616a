#include <cerrno>
#include <iostream>
#include <limits>

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

	void print(const Explanation& explanation)
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
	static std::string buffer(kLongestText, '\0');
	in.getline(buffer.data(), static_cast<std::streamsize>(buffer.size()));
	std::streamsize size = in.gcount();
	if (in.good())
	{
		--size; // the line feed is counted
	}
	else if (!in.eof() && size > 0)
	{
		in.clear();
		in.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
	}
	line.assign(buffer, 0, static_cast<std::size_t>(size));
	return in.good() || size > 0;
}

} // namespace

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
	return stream.anything() || stream.trouble().empty() ? ExitCode::fine
	       : stream.trouble().back().error == EACCES     ? ExitCode::noPermission
	                                                     : ExitCode::noInput;
}

ExitCode runExplain(const ExplainOptions& options, const Context& context)
{
	Explainer explainer(options, context);
	if (options.words == std::vector<std::string>{"-"})
	{
		MessageSplitter splitter;
		for (std::string line; readLine(std::cin, line);)
		{
			explainer.take(splitter.add(line));
		}
		explainer.take(splitter.finish());
		return explainer.result();
	}
	std::string message;
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
