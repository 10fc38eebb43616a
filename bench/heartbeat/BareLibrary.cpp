#include "BareLibrary.h"

#include <array>
#include <cstdio>
#include <iostream>
#include <stdexcept>

#include <Poco/Channel.h>
#include <Poco/DateTimeFormatter.h>
#include <Poco/FileChannel.h>
#include <Poco/FileStream.h>
#include <Poco/LocalDateTime.h>
#include <Poco/Logger.h>
#include <Poco/Net/SocketAddress.h>
#include <Poco/Net/SocketStream.h>
#include <Poco/Net/StreamSocket.h>
#include <Poco/PatternFormatter.h>
#include <Poco/StringTokenizer.h>
#include <Poco/Timespan.h>
#include <Poco/Util/IniFileConfiguration.h>

#include "Host.h"

namespace
{

const Poco::Timespan kTimeout(2, 0);

/// Keeps what is logged in place of writing it.
class KeepingChannel : public Poco::Channel
{
public:
	void log(const Poco::Message& message) override
	{
		// Of the agent's levels the informative one has no echo.
		m_lines.push_back({message, message.getPriority() != Poco::Message::PRIO_INFORMATION});
	}
	std::vector<bare::Line> lines() const { return m_lines; }

private:
	std::vector<bare::Line> m_lines;
};

} // namespace

namespace bare
{

Log::Log(const std::string& path)
{
	Poco::AutoPtr<Poco::PatternFormatter> formatter(
	    new Poco::PatternFormatter("%Y-%m-%d %H:%M:%S.%c [%P:%I][%U:%u] <%q> %t"));
	formatter->setProperty("times", "local");
	Poco::AutoPtr<Poco::FileChannel> file(new Poco::FileChannel);
	file->setProperty("path", path);
	file->setProperty("rotation", "daily");
	file->setProperty("purgeAge", "30 days");
	file->setProperty("archive", "timestamp");
	m_channel = new Poco::FormattingChannel(formatter, file);
	m_channel->open();
}

void Log::write(const Line& line)
{
	// The message is made anew for each line, as it takes its time and thread then.
	const Poco::Message message("FileLogger", line.message.getText(), line.message.getPriority(),
	                            line.message.getSourceFile(), line.message.getSourceLine());
	m_channel->log(message);
	if (line.echoed)
	{
		std::cout << "**DEBUG**(" << message.getSourceFile() << ":" << message.getSourceLine() << ")"
		          << message.getText() << std::endl;
	}
}

void Log::write(const std::vector<Line>& lines)
{
	for (const Line& line : lines)
	{
		write(line);
	}
}

std::vector<Line> linesOf(void (*action)())
{
	Poco::Logger& logger = Poco::Logger::get("FileLogger");
	const Poco::AutoPtr<Poco::Channel> usual(logger.getChannel(), true);
	const Poco::AutoPtr<KeepingChannel> keeping(new KeepingChannel);
	logger.setChannel(keeping);
	action();
	logger.setChannel(usual);
	return keeping->lines();
}

std::string compose(const std::string& path)
{
	const Poco::AutoPtr<Poco::Util::IniFileConfiguration> record(new Poco::Util::IniFileConfiguration(path));
	return "/process/0/2/" + record->getString("TRACE.LAST_RUN_TIME") + "/0/";
}

void send(const std::string& recordPath, Log& log, const std::vector<Line>& lines)
{
	Poco::Net::StreamSocket socket;
	socket.connect(Poco::Net::SocketAddress("127.0.0.1", bench::kPort), kTimeout);
	{
		Poco::Net::SocketStream stream(socket);
		stream << compose(recordPath);
		stream.flush();
		socket.shutdownSend();
		socket.close();
	}
	log.write(lines);
}

void decide(const std::string& text, Log& log, const std::vector<Line>& lines)
{
	const Poco::StringTokenizer tokens(text, "/");
	if (tokens[1] != "process" || tokens[3] != "1" || tokens[5] != "0")
	{
		throw std::logic_error("not the heartbeat that was expected");
	}
	log.write(lines);
}

void receive(Poco::Net::ServerSocket& server, Log& log, const std::vector<Line>& first, const std::vector<Line>& rest)
{
	std::array<char, 256> buffer{};
	Poco::Net::StreamSocket connection = server.acceptConnection();
	connection.setReceiveTimeout(kTimeout);
	const int received = connection.receiveBytes(buffer.data(), static_cast<int>(buffer.size()));
	log.write(first);
	decide(std::string(buffer.data(), static_cast<std::size_t>(received)), log, rest);
	if (connection.receiveBytes(buffer.data(), static_cast<int>(buffer.size())) != 0)
	{
		throw std::logic_error("more than one heartbeat");
	}
	connection.close();
}

void rewriteRecord(const std::string& path, Log& log, const std::vector<Line>& lines)
{
	const std::string time = Poco::DateTimeFormatter::format(Poco::LocalDateTime(), "%Y%m%d%H%M%S");
	const Poco::AutoPtr<Poco::Util::IniFileConfiguration> record(new Poco::Util::IniFileConfiguration(path));
	std::string text;
	{
		Poco::FileInputStream input(path);
		for (std::string line; std::getline(input, line);)
		{
			text += (line.starts_with("LAST_RUN_TIME") ? "LAST_RUN_TIME = " + time : line) + "\n";
		}
	}
	Poco::FileOutputStream(path, std::ios::out | std::ios::trunc) << text;
	log.write(lines);
}

void command(const char* words, Log& log, const std::vector<Line>& lines)
{
	std::array<char, 256> buffer{};
	std::FILE* pPipe = ::popen(words, "re");
	if (pPipe == nullptr || std::fgets(buffer.data(), static_cast<int>(buffer.size()), pPipe) == nullptr)
	{
		throw std::runtime_error(std::string("nothing came from ") + words);
	}
	::pclose(pPipe);
	log.write(lines);
}

} // namespace bare
