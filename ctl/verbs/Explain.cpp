#include "ctl/history/Explain.h"

#include <iostream>
#include <limits>
#include <memory>
#include <set>
#include <utility>

#include "ctl/render/StateViews.h"
#include "ctl/verbs/Verb.h"
#include "ctl/verbs/Verbs.h"
#include "inspect/LogReader.h"

namespace velarix::ctl
{

namespace
{

struct ExplainOptions
{
	std::vector<std::string> words;
	bool json = false;
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

} // namespace

void addExplain(CLI::App& app, Context& context)
{
	const auto options = std::make_shared<ExplainOptions>();
	Verb(app, "explain", "what a message of the agent means and what to do")
	    .option("MESSAGE", options->words, "TEXT",
	            "LABEL:NUMBER, a line of the log or of the console, a text or a part of it; \"-\" reads standard input")
	    .required()
	    .flag("--json", options->json, "print an object of JSON a line")
	    .run(context, [options, &context] { return runExplain(*options, context); });
}

} // namespace velarix::ctl
