#include <algorithm>
#include <chrono>
#include <csignal>
#include <memory>
#include <sstream>

#include <unistd.h>

#include "ctl/render/StateViews.h"
#include "ctl/status/Judgement.h"
#include "ctl/status/NodeState.h"
#include "ctl/verbs/Verb.h"
#include "ctl/verbs/Verbs.h"
#include "inspect/Host.h"
#include "inspect/TimeText.h"

namespace velarix::ctl
{

using namespace inspect;

namespace
{

/// A range that can be read in the refusal.
constexpr int kMostLooks = 1'000'000;

struct WatchOptions
{
	double interval = 1;
	/// 0: without end.
	int count = 0;
	bool json = false;
};

/// The terminal's second screen, where a line that is too long is cut; and back.
constexpr std::string_view kEnter = "\033[?1049h\033[?7l";
constexpr std::string_view kLeave = "\033[?7h\033[?1049l";

/// The signal comes again with its own action, which is to end.
extern "C" void leaveAndEnd(int signal)
{
	[[maybe_unused]] const ssize_t written = ::write(STDOUT_FILENO, kLeave.data(), kLeave.size());
	::raise(signal);
}

/// Shows one state after the other.
class Screen
{
public:
	Screen(const WatchOptions& options, const Context& context)
	    : m_json(options.json), m_terminal(context.terminal && !options.json), m_context(context)
	{
		if (m_terminal)
		{
			forEnds(leaveAndEnd);
			m_context.out << kEnter;
		}
	}

	~Screen()
	{
		if (m_terminal)
		{
			m_context.out << kLeave << m_frame << std::flush;
			forEnds(SIG_DFL);
		}
	}

	Screen(const Screen&) = delete;
	Screen& operator=(const Screen&) = delete;

	void show(const NodeState& state)
	{
		const Judgement judgement = judge(state);
		m_json ? showChange(statusJson(state, judgement))
		       : showFrame(statusText(state, judgement, m_context.colour), state);
		m_context.out << std::flush;
	}

private:
	bool m_json;
	bool m_terminal;
	const Context& m_context;
	nlohmann::ordered_json m_last;
	/// What was shown last stays behind.
	std::string m_frame;

	static void forEnds(void (*handler)(int))
	{
		for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT})
		{
			struct sigaction action = {};
			action.sa_handler = handler;
			action.sa_flags = static_cast<int>(SA_RESETHAND);
			::sigaction(signal, &action, nullptr);
		}
	}

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

	void showFrame(const std::string& text, const NodeState& state)
	{
		m_frame = localText(state.now) + "\n" + text;
		if (!m_terminal)
		{
			m_context.out << m_frame << '\n';
			return;
		}
		const std::vector<std::string> lines = fitted(m_frame);
		for (const std::string& line : lines)
		{
			m_context.out << (&line == &lines.front() ? "\033[H" : "\n")
			              << (&line == &lines.back() ? "\033[J" : "\033[K") << line;
		}
	}

	/// @return the lines; in a smaller window the first (time, node, role) and the last (problems)
	static std::vector<std::string> fitted(const std::string& frame)
	{
		std::vector<std::string> lines;
		std::istringstream stream(frame);
		for (std::string line; std::getline(stream, line);)
		{
			lines.push_back(line);
		}
		const std::size_t room = host::windowLines();
		if (room > 0 && lines.size() > room)
		{
			constexpr std::size_t first = 3;
			const auto head = lines.begin() + static_cast<std::ptrdiff_t>(std::min(first, room / 2));
			*head = "...";
			lines.erase(head + 1, head + 1 + static_cast<std::ptrdiff_t>(lines.size() - room));
		}
		return lines;
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
	    .option("-n,--interval", options->interval, "SECONDS", "seconds between two looks (1)")
	    .within(0.1, 3600.0)
	    .option("--count", options->count, "N", "end after this many looks")
	    .within(1, kMostLooks)
	    .flag("--json", options->json, "print a line of JSON at the begin and at each change")
	    .run(context, [options, &context] { return runWatch(*options, context); });
}

} // namespace velarix::ctl
