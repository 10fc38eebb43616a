/// labping ADDRESS... [beside ADDRESS PORT]: ten pings to each address in turn,
/// through the library that the agent uses and with its defaults, and nothing else.
/// Prints a line "MICROSECONDS ANSWERS" for each. It tells how long the library alone
/// waits. Beside it, as in the agent, a thread may try to connect to the partner
/// without end: the kernel's answers to that come to the pings too.

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include <Poco/Exception.h>
#include <Poco/Net/ICMPClient.h>
#include <Poco/Net/SocketAddress.h>
#include <Poco/Net/StreamSocket.h>
#include <Poco/Timespan.h>

namespace
{

constexpr int pings = 10;
constexpr int connectSeconds = 2;

void connectWithoutEnd(const std::string& address, const std::string& port, const std::atomic<bool>& stop)
{
	while (!stop)
	{
		try
		{
			Poco::Net::StreamSocket socket;
			socket.connect(Poco::Net::SocketAddress(address, port), Poco::Timespan(connectSeconds, 0));
		}
		catch (const Poco::Exception&) // nobody is there: that is what it is for
		{
		}
		for (int tenth = 0; tenth < 20 && !stop; ++tenth)
		{
			std::this_thread::sleep_for(std::chrono::milliseconds(100));
		}
	}
}

void ping(const std::string& address)
{
	using Clock = std::chrono::steady_clock;
	const Clock::time_point begin = Clock::now();
	int answers = 0;
	try
	{
		answers = Poco::Net::ICMPClient::pingIPv4(address, pings);
	}
	catch (const Poco::Exception& error)
	{
		std::fprintf(stderr, "labping: %s\n", error.displayText().c_str());
	}
	const auto took = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - begin);
	std::printf("%lld %d\n", static_cast<long long>(took.count()), answers);
}

} // namespace

int main(int argc, char** argv)
{
	const std::vector<std::string> words(argv + 1, argv + argc);
	std::vector<std::string> addresses;
	std::atomic<bool> stop{false};
	std::thread beside;
	for (std::size_t index = 0; index < words.size(); ++index)
	{
		if (words[index] == "beside" && index + 2 < words.size())
		{
			beside = std::thread(connectWithoutEnd, words[index + 1], words[index + 2], std::cref(stop));
			break;
		}
		addresses.push_back(words[index]);
	}
	if (addresses.empty())
	{
		std::fputs("usage: labping ADDRESS... [beside ADDRESS PORT]\n", stderr);
		return 2;
	}
	for (const std::string& address : addresses)
	{
		ping(address);
	}
	stop = true;
	if (beside.joinable())
	{
		beside.join();
	}
	return 0;
}
