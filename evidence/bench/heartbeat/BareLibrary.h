/// What a heartbeat costs with the library's bare calls and nothing of the agent's:
/// the same connections, the same parser, the same formatter and file channel, the
/// same texts, which are ready.
#pragma once

#include <string>
#include <vector>

#include <Poco/AutoPtr.h>
#include <Poco/FileChannel.h>
#include <Poco/FormattingChannel.h>
#include <Poco/Message.h>
#include <Poco/Net/ServerSocket.h>
#include <Poco/Net/SocketAddress.h>

namespace bare
{

/// A line of the log, ready to be written.
struct Line
{
	Poco::Message message;
	bool echoed; ///< on the console too, as the agent's debug lines are
};

/// The agent's log chain with a file of its own.
class Log
{
public:
	/// @param echoes  the echo on the console is written, too
	Log(const std::string& path, bool echoes);
	void write(const Line& line);
	void write(const std::vector<Line>& lines);

private:
	Poco::AutoPtr<Poco::FormattingChannel> m_channel;
	bool m_echoes;
};

/// The file channel alone: of a line that is ready as it stands in the file.
class File
{
public:
	explicit File(const std::string& path);
	/// @return the line's message with the text that the agent's log has for it
	static Poco::Message formatted(const Line& line);
	void write(const Poco::Message& message);

private:
	Poco::AutoPtr<Poco::FileChannel> m_channel;
};

/// @return what the agent logs while `action` runs
std::vector<Line> linesOf(void (*action)());

/// @return the heartbeat's text, with the start time from the record at `path`
std::string compose(const std::string& path);

/// Connects, composes, writes and closes; logs the lines.
void send(const std::string& recordPath, Log& log, const std::vector<Line>& lines);

/// Splits the text at "/" and compares its fields; logs the lines.
void decide(const std::string& text, Log& log, const std::vector<Line>& lines);

/// Accepts a connection and reads it to its end; `first` is logged before the
/// decision, `rest` by it.
void receive(Poco::Net::ServerSocket& server, Log& log, const std::vector<Line>& first, const std::vector<Line>& rest);

/// The lines of a pass of the receiver, by where they are logged.
struct PassLines
{
	std::vector<Line> before; ///< the connection is accepted
	std::vector<Line> first;  ///< see receive()
	std::vector<Line> rest;   ///< see receive()
	std::vector<Line> after;
};

/// Listens, polls, receives, closes all.
void pass(const Poco::Net::SocketAddress& address, Log& log, const PassLines& lines);

/// Loads the record with the library's parser, copies the file's lines with one of them
/// replaced, by the C library's streams; logs the lines.
/// @throws std::runtime_error when the file cannot be read or written
void rewriteRecord(const std::string& path, Log& log, const std::vector<Line>& lines);

/// Runs the command and reads what it prints; logs the lines.
void command(const char* words, Log& log, const std::vector<Line>& lines);

} // namespace bare
