/// A node's log as a test wants it: what an agent writes pass by pass, and single
/// lines. Times are given as spans before an end, which is the test's "now".
#pragma once

#include <chrono>
#include <string>

#include "inspect/LogLine.h"

class NodeLog
{
public:
	using Span = std::chrono::milliseconds;

	/// @param end the moment from which spans count back, in UTC as the log shows it
	explicit NodeLog(velarix::inspect::Instant end, long process = 4711) : m_end(end), m_process(process) {}

	/// One line.
	NodeLog& line(Span before, int thread, const std::string& place, const std::string& text, char letter = 'D');

	/// The lines of a start, up to the workers.
	NodeLog& start(Span before);
	/// A slave becomes master because both were slaves, and starts the service.
	NodeLog& takeService(Span before);
	/// A master whose programs have gone drops the address and asks.
	NodeLog& giveUp(Span before);

	/// What a sound node writes in a second: the checker, one heartbeat sent, one
	/// pass with a heartbeat received.
	/// @param partner the heartbeat received; empty for a silent pass
	NodeLog& master(Span before, const std::string& partner = kSlaveBeat);
	NodeLog& slave(Span before, const std::string& partner = kMasterBeat, bool asking = false);

	/// These seconds from the first span to the second, newest last.
	NodeLog& masterFor(Span from, Span to, const std::string& partner = kSlaveBeat);
	NodeLog& slaveFor(Span from, Span to, const std::string& partner = kMasterBeat);

	/// The lines that follow are of another agent.
	NodeLog& agent(long process);

	const std::string& text() const { return m_text; }

	static constexpr char kSlaveBeat[] = "/process/0/2/20260301110000/0/";
	static constexpr char kMasterBeat[] = "/process/1/1/20260301110000/0/";

private:
	velarix::inspect::Instant m_end;
	long m_process;
	std::string m_text;

	void receive(Span before, const std::string& message, const std::string& verdict);
};
