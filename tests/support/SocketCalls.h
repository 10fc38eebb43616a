/// The library's socket calls, recorded, disturbed and used as hooks.
///
/// A program that lists SocketCalls.cpp among its FAKES answers these calls
/// itself and passes them on to the C library: the sockets stay real. A call is
/// described by a text, and a hook, a fault or a record is chosen by how that
/// text begins ("option", "option SO_KEEPALIVE"):
///   option NAME VALUE, bind, listen BACKLOG, accept, poll MILLISECONDS,
///   receive SIZE, connect ADDRESS:PORT, send SIZE, shutdown HOW
/// The helpers of Peer.h bypass it.
#pragma once

#include <functional>
#include <string>

namespace socketcalls
{

/// Records calls as events from now on.
void record(const std::string& call);

/// Called before each such call. A hook of accept, poll, receive, connect and
/// send may throw, the others must not.
void before(const std::string& call, std::function<void()> hook);

/// Called after each such call that succeeded (a connect does not: it is polled
/// for): after "listen" a partner can
/// connect, and the poll that follows finds it.
void after(const std::string& call, std::function<void()> hook);

/// The next such call, or each from now on, fails with `error` (a value of errno), after its hook.
void fail(const std::string& call, int error, bool once = true);

/// Polls report what is there now instead of waiting for it, as long as `when`,
/// asked after the hook of each poll, says so.
void pollWithoutWaiting(std::function<bool()> when);

} // namespace socketcalls
