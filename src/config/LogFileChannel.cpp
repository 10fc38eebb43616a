#include "LogFileChannel.h"

#include <vector>

#include <Poco/AutoPtr.h>

#include "velarix/velarix.h"

namespace
{

/// Its destructor would free the file a second time.
void keepForEver(LogFileChannel* channel)
{
	static auto* const kept = new std::vector<Poco::AutoPtr<LogFileChannel>>;
	kept->emplace_back(channel, true);
}

} // namespace

void LogFileChannel::log(const Poco::Message& message)
{
	const std::lock_guard<std::mutex> lock(m_mutex);
	if (m_lost)
	{
		m_lost->rethrow();
	}
	// Nothing is lost by a file that cannot be opened: the next line tries again.
	open();
	try
	{
		Poco::FileChannel::log(message);
	}
	catch (const Poco::WriteFileException&)
	{
		// The file is still there; whether it takes the next line is its own affair.
		throw;
	}
	catch (const Poco::Exception& exc)
	{
		m_lost.reset(exc.clone());
		keepForEver(this);
		throw;
	}
}
