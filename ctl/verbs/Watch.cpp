#include <chrono>
#include <memory>

#include "ctl/render/StateViews.h"
#include "ctl/status/Judgement.h"
#include "ctl/status/NodeState.h"
#include "ctl/verbs/Verb.h"
#include "ctl/verbs/Verbs.h"
#include "inspect/HostActions.h"
#include "inspect/TimeText.h"

namespace velarix::ctl
{

using namespace inspect;

namespace
{

struct WatchOptions
{
	double interval = 1;
	/// 0: without end.
	int count = 0;
	bool json = false;
};

/// Shows one state after the other.
class Screen
{
public:
	Screen(const WatchOptions& options, const Context& context) : m_json(options.json), m_context(context) {}

	void show(const NodeState& state)
	{
		const Judgement judgement = judge(state);
		m_json ? showChange(statusJson(state, judgement))
		       : showFrame(statusText(state, judgement, m_context.colour), state);
		m_context.out << std::flush;
	}

private:
	bool m_json;
	const Context& m_context;
	nlohmann::ordered_json m_last;

	/// A whole status as one line, when more than times differ from the last.
	void showChange(const nlohmann::ordered_json& status)
	{
		nlohmann::ordered_json steady = withoutTimes(status);
		if (steady != m_last)
		{
			m_context.out << jsonText(status) << '\n';
			m_last = std::move(steady);
		}
	}

	/// On a terminal each line is overwritten and its rest erased, so that nothing
	/// flickers; what was below goes away.
	void showFrame(const std::string& text, const NodeState& state)
	{
		const std::string frame = localText(state.now) + "\n" + text;
		if (!m_context.terminal)
		{
			m_context.out << frame << '\n';
			return;
		}
		m_context.out << "\033[H";
		for (const char character : frame)
		{
			m_context.out << (character == '\n' ? "\033[K\n" : std::string(1, character));
		}
		m_context.out << "\033[J";
	}
};

ExitCode runWatch(const WatchOptions& options, const Context& context)
{
	const std::chrono::milliseconds interval(static_cast<long>(options.interval * 1000));
	Observer observer(context.paths);
	Screen screen(options, context);
	for (int shown = 1;; ++shown)
	{
		screen.show(observer.look(context.now()));
		if (shown == options.count || !context.out)
		{
			return ExitCode::fine;
		}
		host::pause(interval);
	}
}

} // namespace

void addWatch(CLI::App& app, Context& context)
{
	const auto options = std::make_shared<WatchOptions>();
	Verb(app, "watch", "the status again and again")
	    .seconds("-n,--interval", options->interval, 0.1, 3600, "seconds between two looks (1)")
	    .count("--count", options->count, "end after this many looks")
	    .flag("--json", options->json, "print a line of JSON at the begin and at each change")
	    .run(context, [options, &context] { return runWatch(*options, context); });
}

} // namespace velarix::ctl
