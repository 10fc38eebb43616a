// The state of this node for people and programs, for a monitoring system and for Prometheus.

#include <csignal>
#include <sstream>

#include <nlohmann/json.hpp>
#include <unistd.h>

#include "ctl/pair/PairReport.h"
#include "ctl/verbs/Verbs.h"
#include "inspect/Host.h"
#include "inspect/InputFile.h"
#include "inspect/TimeText.h"

namespace velarix::ctl
{

namespace
{

/// The statuses that init scripts give.
ExitCode codeOf(const NodeState& state)
{
	const AgentState agent = state.agent.state;
	return agent == AgentState::dead || agent == AgentState::otherProgram ? ExitCode::notAsWished
	       : agent == AgentState::noPidFile                               ? ExitCode::notRunning
	       : state.role.known()                                           ? ExitCode::fine
	                                                                      : ExitCode::notKnown;
}

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

} // namespace

ExitCode runStatus(const StatusOptions& options, const Context& context)
{
	const NodeState state = Observer(context.paths).look(context.now());
	const Judgement judgement = judge(state);
	if (options.json || options.pair)
	{
		nlohmann::ordered_json json = statusJson(state, judgement);
		if (options.pair)
		{
			json["pair"] = pairJson(state, context.paths);
		}
		context.out << jsonText(json, 2) << '\n';
	}
	else
	{
		context.out << statusText(state, judgement, context.colour);
	}
	return codeOf(state);
}

ExitCode runNagios(const NagiosLimits& limits, const Context& context)
{
	if (limits.critical < limits.warning)
	{
		throw Failure(ExitCode::usage, "nagios: --critical is below --warning");
	}
	const NodeState state = Observer(context.paths, false).look(context.now());
	const NagiosLine line = nagiosLine(state, judge(state), limits);
	context.out << line.text << '\n';
	return static_cast<ExitCode>(line.status);
}

ExitCode runMetrics(const std::string& textfile, const Context& context)
{
	const bool former = !textfile.empty() && host::fileFacts(textfile).kind != host::FileKind::missing;
	Counters counters = former ? readCounters(readInputFile(textfile)) : Counters{};
	const NodeState state = Observer(context.paths, !counters.roleChanged).look(context.now());
	if (!textfile.empty() && state.tail.problem.empty())
	{
		countOn(counters, state.logWish());
	}
	const std::string text = metricsText(state, judge(state), counters);
	textfile.empty() ? void(context.out << text) : replaceFile(textfile, text);
	if (!state.settingsProblem.empty())
	{
		complain(context, state.settingsProblem);
		return state.settingsCode;
	}
	return ExitCode::fine;
}

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

} // namespace velarix::ctl
