/// What a heartbeat costs with the library's bare calls and nothing of the agent's:
/// the same connections, the same parser, the same formatter and file channel, the
/// same texts, which are ready.
#pragma once

#include <string>
#include <vector>

#include <Poco/AutoPtr.h>
#include <Poco/FormattingChannel.h>
#include <Poco/Message.h>
#include <Poco/Net/ServerSocket.h>

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
	explicit Log(const std::string& path);
	/// Writes the line, and its echo.
	void write(const Line& line);
	void write(const std::vector<Line>& lines);

private:
	Poco::AutoPtr<Poco::FormattingChannel> m_channel;
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

/// Loads the record, copies the file's lines with one of them replaced; logs the lines.
void rewriteRecord(const std::string& path, Log& log, const std::vector<Line>& lines);

/// Runs the command and reads what it prints; logs the lines.
void command(const char* words, Log& log, const std::vector<Line>& lines);

} // namespace bare
