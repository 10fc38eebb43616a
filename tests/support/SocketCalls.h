/// The library's socket calls as events.
///
/// A program that lists SocketCalls.cpp among its FAKES answers these calls itself and passes
/// them on to the C library: the sockets stay real. A call is announced (Events.h) by a text
/// before it is made and, when it has succeeded, by "after TEXT":
///   option NAME VALUE, bind, listen BACKLOG, accept, poll MILLISECONDS,
///   receive SIZE, connect ADDRESS:PORT, send SIZE, shutdown HOW
/// A connect does not succeed: it is polled for. After "listen" a partner can connect, and the
/// poll that follows finds it. The calls that an action itself makes are no events.
#pragma once

#include <string>

namespace socketcalls
{

/// Records calls that begin so as events from now on.
void record(const std::string& call);

/// Thrown by an action: the call fails with `error` (a value of errno). Out of accept, poll,
/// receive, connect and send other exceptions may be thrown too.
struct Fault
{
	int error;
};

/// Thrown by an action: the poll reports what is there now instead of waiting for it.
struct AtOnce
{
};

} // namespace socketcalls
