#include "inspect/Host.h"

#include <cerrno>
#include <chrono>

#include <poll.h>

#include "inspect/EchoSocket.h"

namespace velarix::inspect::host
{

namespace
{

using Steady = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kPatience{100};

/// Reads until an answer or the deadline.
bool awaitAnswer(const EchoSocket& socket)
{
	const Steady::time_point deadline = Steady::now() + kPatience;
	for (Steady::duration left = kPatience; left > Steady::duration::zero(); left = deadline - Steady::now())
	{
		pollfd wanted{socket.descriptor(), POLLIN, 0};
		const auto wait = std::chrono::ceil<std::chrono::milliseconds>(left).count();
		if (::poll(&wanted, 1, static_cast<int>(wait)) > 0 && socket.answer())
		{
			return true;
		}
	}
	return false;
}

} // namespace

std::optional<bool> answersPing(const std::string& address, int count)
{
	EchoSocket socket(address);
	if (!socket)
	{
		return errno == EPERM ? std::nullopt : std::optional(false);
	}
	for (int sent = 1; sent <= count; ++sent)
	{
		socket.request();
		if (awaitAnswer(socket))
		{
			return true;
		}
	}
	return false;
}

} // namespace velarix::inspect::host
