#include "BareLibrary.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <iostream>
#include <memory>
#include <stdexcept>

#include <Poco/Channel.h>
#include <Poco/FileChannel.h>
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

Poco::AutoPtr<Poco::PatternFormatter> formatterOfLog()
{
	Poco::AutoPtr<Poco::PatternFormatter> formatter(
	    new Poco::PatternFormatter("%Y-%m-%d %H:%M:%S.%c [%P:%I][%U:%u] <%q> %t"));
	formatter->setProperty("times", "local");
	return formatter;
}

Poco::AutoPtr<Poco::FileChannel> fileOfLog(const std::string& path)
{
	Poco::AutoPtr<Poco::FileChannel> file(new Poco::FileChannel);
	file->setProperty("path", path);
	file->setProperty("rotation", "daily");
	file->setProperty("purgeAge", "30 days");
	file->setProperty("archive", "timestamp");
	return file;
}

struct CloseFile
{
	void operator()(std::FILE* pFile) const { std::fclose(pFile); }
};
using FileStream = std::unique_ptr<std::FILE, CloseFile>;

FileStream openStream(const std::string& path, const char* how)
{
	FileStream stream(std::fopen(path.c_str(), how));
	if (stream == nullptr)
	{
		throw std::runtime_error("cannot open " + path);
	}
	return stream;
}

} // namespace

namespace bare
{

Log::Log(const std::string& path, bool echoes)
    : m_channel(new Poco::FormattingChannel(formatterOfLog(), fileOfLog(path))), m_echoes(echoes)
{
	m_channel->open();
}

void Log::write(const Line& line)
{
	// The message is made anew for each line, as it takes its time and thread then.
	const Poco::Message message("FileLogger", line.message.getText(), line.message.getPriority(),
	                            line.message.getSourceFile(), line.message.getSourceLine());
	m_channel->log(message);
	if (m_echoes && line.echoed)
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

File::File(const std::string& path) : m_channel(fileOfLog(path))
{
	m_channel->open();
}

Poco::Message File::formatted(const Line& line)
{
	std::string text;
	formatterOfLog()->format(line.message, text);
	Poco::Message message(line.message);
	message.setText(text);
	return message;
}

void File::write(const Poco::Message& message)
{
	m_channel->log(message);
}

std::vector<Line> linesOf(void (*action)())
{
	Poco::Logger& logger = Poco::Logger::get("FileLogger");
	const Poco::Channel::Ptr usual = logger.getChannel();
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

void pass(const Poco::Net::SocketAddress& address, Log& log, const PassLines& lines)
{
	{
		Poco::Net::ServerSocket server;
		server.bind(address, true, false);
		server.listen(64);
		server.setKeepAlive(false);
		server.setReceiveTimeout(kTimeout);
		if (!server.poll(kTimeout, Poco::Net::Socket::SELECT_READ))
		{
			throw std::logic_error("the partner did not call");
		}
		log.write(lines.before);
		receive(server, log, lines.first, lines.rest);
	}
	log.write(lines.after);
}

void rewriteRecord(const std::string& path, Log& log, const std::vector<Line>& lines)
{
	const std::time_t now = std::time(nullptr);
	std::tm local{};
	std::array<char, 48> entry{};
	std::strftime(entry.data(), entry.size(), "LAST_RUN_TIME = %Y%m%d%H%M%S\n", ::localtime_r(&now, &local));
	const Poco::AutoPtr<Poco::Util::IniFileConfiguration> record(new Poco::Util::IniFileConfiguration(path));
	std::array<char, 1024> text{};
	std::size_t size = 0;
	{
		const FileStream input = openStream(path, "re");
		while (size < text.size() - entry.size() &&
		       std::fgets(text.data() + size, static_cast<int>(text.size() - size), input.get()) != nullptr)
		{
			if (std::strncmp(text.data() + size, "LAST_RUN_TIME", std::strlen("LAST_RUN_TIME")) == 0)
			{
				std::memcpy(text.data() + size, entry.data(), entry.size());
			}
			size += std::strlen(text.data() + size);
		}
		if (std::feof(input.get()) == 0)
		{
			throw std::runtime_error(path + " is too long");
		}
	}
	const FileStream output = openStream(path, "we");
	if (std::fputs(text.data(), output.get()) == EOF || std::fflush(output.get()) != 0)
	{
		throw std::runtime_error("cannot write " + path);
	}
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
