// The events of this node, passed on to the programs of a directory. Each notifier has a
// process of its own that reads the logs, so that one that hangs holds up no other.

#include <csignal>
#include <exception>

#include <nlohmann/json.hpp>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "ctl/history/EventStream.h"
#include "ctl/notify/Notifiers.h"
#include "ctl/verbs/Verbs.h"
#include "inspect/Host.h"
#include "inspect/TimeText.h"

namespace velarix::ctl
{

using namespace notify;

namespace
{

using namespace std::chrono_literals;
using std::chrono::milliseconds;

constexpr auto kLookForNotifiers = 1s;
/// After a worker that failed.
constexpr auto kBeforeNext = 10s;
constexpr char kNotifiers[] = "/etc/velarix-ha/notify.d";

milliseconds limitOf(const NotifyOptions& options)
{
	return milliseconds(static_cast<long>(options.timeOut * 1000));
}

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
			::_exit(::getppid() == parent ? workAlone(notifier) : 0);
		}
		if (child > 0)
		{
			m_workers[notifier.name] = child;
		}
	}

	/// @return the exit status of its process
	int workAlone(const Notifier& notifier) const
	{
		try
		{
			// Who disables a notifier ends it, also while it runs.
			host::endWithProgram();
			work(notifier, limitOf(m_options), m_context);
		}
		catch (const std::exception& error)
		{
			complain(m_context, notifier.name + ": " + error.what());
			host::pause(kBeforeNext);
			return 1;
		}
	}
};

ExitCode test(const NotifyOptions& options, const Context& context)
{
	const std::vector<Notifier> all = notifiersIn(context.paths.below(kNotifiers));
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
		complain(context, std::string("no notifier is enabled in ") + kNotifiers);
	}
	return fine ? ExitCode::fine : ExitCode::notAsWished;
}

} // namespace

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
	std::filesystem::create_directories(context.paths.below(kPositions));
	Notification(options, context).run();
}

} // namespace velarix::ctl
