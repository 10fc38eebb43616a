// The events of this node, passed on to the programs of a directory. Each notifier has a
// process of its own that reads the logs, so that one that hangs holds up no other.

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "ctl/history/EventStream.h"
#include "ctl/notify/Delivery.h"
#include "ctl/render/EventReport.h"
#include "ctl/verbs/Verb.h"
#include "ctl/verbs/Verbs.h"
#include "inspect/Host.h"
#include "inspect/HostActions.h"
#include "inspect/SettingsFile.h"
#include "inspect/SettingsKeys.h"
#include "inspect/TimeText.h"

namespace velarix::ctl
{

using namespace inspect;
using namespace notify;

namespace
{

using namespace std::chrono_literals;
using std::chrono::milliseconds;

constexpr auto kLook = 200ms;
constexpr auto kLookForNotifiers = 1s;
constexpr milliseconds kFirstRetry = 1s;
constexpr milliseconds kLastRetry = 1min;
/// Nobody wants to be woken up by what was yesterday.
constexpr auto kTooOld = 24h;
/// Of sysexits.h: the event is at fault, and would be at every try.
constexpr int kBadEvent = 65;
constexpr double kLongestLimit = 3600;

struct NotifyOptions
{
	bool test = false;
	/// Seconds that a notifier may take.
	double timeOut = 30;
};

milliseconds limitOf(const NotifyOptions& options)
{
	return milliseconds(static_cast<long>(options.timeOut * 1000));
}

/// @return the event with what tells the reader where it happened
Json withNode(Json event, const std::string& node, std::string_view severity)
{
	event["severity"] = severity;
	event["host"] = host::name();
	event["node"] = node;
	return event;
}

std::string nodeOf(const Context& context)
{
	return SettingsFile::load(context.paths.settings).text(key::kThisServerIP).value_or("");
}

/// Brings the events to one notifier, in their order, each until it is taken.
class Worker
{
public:
	Worker(const Notifier& notifier, const NotifyOptions& options, const Context& context)
	    : m_notifier(notifier), m_limit(limitOf(options)), m_context(context), m_node(nodeOf(context)),
	      m_file(positions(context) / notifier.name), m_position(begin()), m_agent(m_position.agent),
	      m_keeper(m_position.keeper),
	      m_stream(
	          EventSource::of(context.paths),
	          std::max(std::min(m_position.agent.at, context.now()), context.now() - kTooOld),
	          [this](const Event& event)
	          { take(m_agent, m_position.agent, m_stream.at(), eventJson(event), severityOf(event)); },
	          [this](const KeeperEvent& event)
	          { take(m_keeper, m_position.keeper, event.time, eventJson(event), severityOf(event)); })
	{
	}

	[[noreturn]] void run()
	{
		read();
		std::vector<std::pair<Message, Mark*>> missed;
		for (auto [resumption, mark] :
		     {std::pair(&m_agent, &m_position.agent), std::pair(&m_keeper, &m_position.keeper)})
		{
			for (Message& message : resumption->rest())
			{
				missed.emplace_back(std::move(message), mark);
			}
			if (const std::size_t dropped = resumption->dropped(); dropped > 0)
			{
				say(std::to_string(dropped) + " older events are dropped: too many have happened meanwhile");
			}
		}
		// What the two logs report of the time without this process comes at once: in one order.
		std::ranges::stable_sort(missed, {}, [](const auto& one) { return one.first.at; });
		for (const auto& [message, mark] : std::exchange(missed, {}))
		{
			pass(message, *mark);
		}
		for (;;)
		{
			host::pause(kLook);
			read();
		}
	}

	static std::filesystem::path positions(const Context& context)
	{
		return context.paths.below("/var/lib/velarix-ha/notify");
	}

private:
	const Notifier m_notifier;
	const milliseconds m_limit;
	const Context& m_context;
	const std::string m_node;
	const std::filesystem::path m_file;
	Position m_position;
	Resumption m_agent;
	Resumption m_keeper;
	EventStream m_stream;
	/// How many of the troubles of each log were reported.
	std::size_t m_agentTroubles = 0;
	std::size_t m_keeperTroubles = 0;

	void read()
	{
		m_stream.read();
		m_stream.readKeeper();
		for (auto [troubles, reported] : {std::pair(&m_stream.trouble(), &m_agentTroubles),
		                                  std::pair(&m_stream.keeperTrouble(), &m_keeperTroubles)})
		{
			for (; *reported < troubles->size(); ++*reported)
			{
				const LogTrouble& one = (*troubles)[*reported];
				say("cannot read " + one.path.string() + ": " + std::strerror(one.error));
			}
		}
	}

	/// A notifier that is new here is spared the past.
	Position begin() const
	{
		std::optional<Position> position;
		try
		{
			position = Position::read(m_file);
		}
		catch (const Failure& failure)
		{
			say(std::string(failure.what()) + "; it goes on from now");
		}
		if (!position)
		{
			// The log's times are cut to tenths of a second.
			const Instant now = std::chrono::floor<std::chrono::duration<long, std::deci>>(m_context.now());
			position = Position{{now, {}}, {now, {}}};
			remember(*position);
		}
		return *position;
	}

	/// On a full disk it goes on all the same: a new start gives the last events again.
	void remember(const Position& position) const
	{
		try
		{
			position.write(m_file);
		}
		catch (const Failure& failure)
		{
			say(failure.what());
		}
	}

	void say(const std::string& text) const { complain(m_context, m_notifier.name + ": " + text); }

	void take(Resumption& resumption, Mark& mark, Instant at, Json event, std::string_view severity)
	{
		const Message message{at, withNode(std::move(event), m_node, severity)};
		if (resumption.passes(message))
		{
			pass(message, mark);
		}
	}

	void pass(const Message& message, Mark& mark)
	{
		for (milliseconds wait = kFirstRetry; !isDone(message, wait); wait = std::min(2 * wait, kLastRetry))
		{
			host::pause(wait);
		}
		mark = {message.at, message.identity()};
		remember(m_position);
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

/// Runs a process for each notifier.
class Notification
{
public:
	Notification(const NotifyOptions& options, const Context& context) : m_options(options), m_context(context) {}

	[[noreturn]] void run()
	{
		for (;;)
		{
			look();
			host::pause(kLookForNotifiers);
		}
	}

private:
	const NotifyOptions& m_options;
	const Context& m_context;
	std::map<std::string, pid_t> m_workers;
	std::map<std::string, std::string> m_refused;

	void look()
	{
		for (pid_t ended = 0; (ended = ::waitpid(-1, nullptr, WNOHANG)) > 0;)
		{
			std::erase_if(m_workers, [&](const auto& worker) { return worker.second == ended; });
		}
		std::map<std::string, pid_t> gone = m_workers;
		for (const Notifier& notifier : notifiersIn(m_context.paths.below(kNotifiers)))
		{
			if (notifier.refused != std::exchange(m_refused[notifier.name], notifier.refused) &&
			    !notifier.refused.empty())
			{
				complain(m_context, notifier.name + " is not run: " + notifier.refused);
			}
			if (notifier.refused.empty())
			{
				gone.erase(notifier.name);
				start(notifier);
			}
		}
		for (const auto& [name, worker] : gone)
		{
			::kill(worker, SIGTERM);
		}
	}

	void start(const Notifier& notifier)
	{
		if (m_workers.contains(notifier.name))
		{
			return;
		}
		const pid_t parent = ::getpid();
		const pid_t child = ::fork();
		if (child == 0)
		{
			// Nobody goes on alone when the parent is killed, also not just before this.
			::prctl(PR_SET_PDEATHSIG, SIGTERM);
			::_exit(::getppid() == parent ? work(notifier) : 0);
		}
		if (child > 0)
		{
			m_workers[notifier.name] = child;
		}
	}

	/// @return the exit status of its process
	int work(const Notifier& notifier) const
	{
		try
		{
			// Who disables a notifier ends it, also while it runs.
			host::endWithProgram();
			Worker(notifier, m_options, m_context).run();
		}
		catch (const std::exception& error)
		{
			complain(m_context, notifier.name + ": " + error.what());
			host::pause(kLastRetry / 6);
			return 1;
		}
	}

public:
	static constexpr char kNotifiers[] = "/etc/velarix-ha/notify.d";
};

ExitCode test(const NotifyOptions& options, const Context& context)
{
	const std::vector<Notifier> all = notifiersIn(context.paths.below(Notification::kNotifiers));
	const std::string text = "a test of the notifications, by velarixctl notify --test";
	const Json event =
	    withNode({{"time", isoText(context.now())}, {"event", "test"}, {"text", text}}, nodeOf(context), "problem");
	bool fine = !all.empty();
	for (const Notifier& notifier : all)
	{
		const host::ProgramEnd end =
		    notifier.refused.empty() ? deliver(notifier, event, limitOf(options)) : host::ProgramEnd{};
		const std::string failure = !notifier.refused.empty() ? notifier.refused : end.fine() ? "" : end.reason();
		context.out << notifier.name << ": " << (failure.empty() ? "taken" : printable(failure)) << '\n';
		fine = fine && failure.empty();
	}
	if (all.empty())
	{
		complain(context, std::string("no notifier is enabled in ") + Notification::kNotifiers);
	}
	return fine ? ExitCode::fine : ExitCode::notAsWished;
}

ExitCode runNotify(const NotifyOptions& options, const Context& context)
{
	if (host::user() != 0)
	{
		throw Failure(ExitCode::noPermission, "notifiers are run as root");
	}
	if (options.test)
	{
		return test(options, context);
	}
	EventSource::of(context.paths);
	std::filesystem::create_directories(Worker::positions(context));
	Notification(options, context).run();
}

} // namespace

void addNotify(CLI::App& app, Context& context)
{
	const auto options = std::make_shared<NotifyOptions>();
	Verb(app, "notify", "pass events on to the programs in /etc/velarix-ha/notify.d")
	    .flag("--test", options->test, "give each of them a test event once, tell what came of it, and end")
	    .seconds("--timeout", options->timeOut, 1, kLongestLimit,
	             "kill one that takes longer, and try again later (30)")
	    .run(context, [options, &context] { return runNotify(*options, context); });
}

} // namespace velarix::ctl
