#include "Outside.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <linux/close_range.h>
#include <unistd.h>

#include <Poco/DirectoryIterator.h>
#include <Poco/Exception.h>
#include <Poco/Net/ICMPClient.h>
#include <Poco/NumberParser.h>

#include "velarix/velarix.h"

namespace
{

/// For kernels before 5.11, which cannot mark a range.
void markEachDescriptor()
{
	try
	{
		for (Poco::DirectoryIterator it(std::string("/proc/self/fd")), end; it != end; ++it)
		{
			int descriptor = 0;
			if (Poco::NumberParser::tryParse(it.name(), descriptor) && descriptor > STDERR_FILENO)
			{
				::fcntl(descriptor, F_SETFD, FD_CLOEXEC);
			}
		}
	}
	catch (const Poco::Exception&)
	{
		// Without /proc the launch goes on: starting the service counts more.
	}
}

void keepDescriptorsFromChildren()
{
	if (::close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC) != 0)
	{
		markEachDescriptor();
	}
}

/// Unblocks, for its lifetime, the signals that the library blocks in its
/// threads; a program started meanwhile begins without them blocked.
class OrdinarySignals
{
public:
	OrdinarySignals()
	{
		sigset_t ordinary;
		sigemptyset(&ordinary);
		for (const int signal : {SIGQUIT, SIGTERM, SIGPIPE})
		{
			sigaddset(&ordinary, signal);
		}
		forgetBrokenPipes();
		::pthread_sigmask(SIG_UNBLOCK, &ordinary, &m_previous);
	}
	~OrdinarySignals() { ::pthread_sigmask(SIG_SETMASK, &m_previous, nullptr); }
	OrdinarySignals(const OrdinarySignals&) = delete;
	OrdinarySignals& operator=(const OrdinarySignals&) = delete;

private:
	/// A write to a console that has gone leaves this thread a pending SIGPIPE,
	/// which would end the daemon as soon as it is unblocked.
	static void forgetBrokenPipes()
	{
		sigset_t brokenPipe{};
		sigemptyset(&brokenPipe);
		sigaddset(&brokenPipe, SIGPIPE);
		const timespec atOnce{};
		while (::sigtimedwait(&brokenPipe, nullptr, &atOnce) == SIGPIPE || errno == EINTR)
		{
		}
	}

	sigset_t m_previous{};
};

} // namespace

namespace outside
{

std::FILE* openPipe(const std::string& command)
{
	keepDescriptorsFromChildren();
	const OrdinarySignals signals;
	return ::popen(command.c_str(), "r");
}

int closePipe(std::FILE* pipe)
{
	return ::pclose(pipe);
}

int runShell(const std::string& command)
{
	keepDescriptorsFromChildren();
	const OrdinarySignals signals;
	return std::system(command.c_str());
}

Poco::ProcessHandle launch(const std::string& path, const std::vector<std::string>& arguments)
{
	keepDescriptorsFromChildren();
	const OrdinarySignals signals;
	return Poco::Process::launch(path, arguments);
}

int ping(const std::string& address, int count)
{
	return Poco::Net::ICMPClient::pingIPv4(address, count);
}

} // namespace outside
