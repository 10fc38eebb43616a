/// What a node has read from its heartbeat port, as its log tells.
#pragma once

#include <string>

namespace velarix::lab::hostile
{

struct ReceivedCounts
{
	long all = 0;     ///< messages, each read of the socket being one
	long partner = 0; ///< of them heartbeats of an agent: its partner's, and what is replayed of them
};

/// @param log  text of a node's log
ReceivedCounts receivedIn(const std::string& log);

} // namespace velarix::lab::hostile
