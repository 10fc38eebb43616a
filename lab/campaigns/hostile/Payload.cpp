#include "lab/campaigns/hostile/Payload.h"

#include <array>
#include <ctime>

#include "lab/core/Basics.h"

namespace velarix::lab::hostile
{

namespace
{

std::size_t below(std::mt19937_64& random, std::size_t limit)
{
	return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random);
}

std::string noise(std::mt19937_64& random, std::size_t length)
{
	std::string text(length, '\0');
	for (char& byte : text)
	{
		byte = static_cast<char>(below(random, 256));
	}
	return text;
}

std::string repeated(const std::string& piece, std::size_t times)
{
	std::string text;
	for (std::size_t count = 0; count < times; ++count)
	{
		text += piece;
	}
	return text;
}

/// Five tokens at most: the sixth is what makes a heartbeat of it.
std::string shortened(std::mt19937_64& random)
{
	const std::string whole = std::string("/process/1/1/") + randomTime;
	return whole.substr(0, 1 + below(random, whole.size()));
}

std::string wrongPrefix(std::mt19937_64& random)
{
	static const std::array<std::string, 5> prefixes{"proces", "Process", " process", "PROCESS", "xprocess"};
	return "/" + prefixes[below(random, prefixes.size())] + "/1/1/" + randomTime + "/1/";
}

} // namespace

std::string forgedHeartbeat(const std::string& role, const std::string& running, const std::string& ask)
{
	return "/process/" + running + "/" + role + "/" + forgedTime + "/" + ask + "/";
}

std::string forgedHeartbeat(const std::string& fields)
{
	if (fields.size() != 5 || fields[1] != '-' || fields[3] != '-')
	{
		throw LabError("\"" + fields + "\" is no heartbeat: ROLE-RUNNING-ASK, for example 2-0-1");
	}
	return forgedHeartbeat(fields.substr(0, 1), fields.substr(2, 1), fields.substr(4, 1));
}

std::string forgedLogLine()
{
	const std::time_t now = std::time(nullptr);
	std::tm date{};
	::localtime_r(&now, &date);
	std::array<char, 32> text{};
	std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &date);
	return "\n" + std::string(text.data()) + ".0 [1:3][CHeartReciver:516] <D> my service IP is not OK (2)";
}

std::string randomPayload(std::mt19937_64& random)
{
	switch (below(random, 6))
	{
	case 0:
		return shortened(random);
	case 1:
		return wrongPrefix(random);
	case 2:
		return repeated("%s%n%x/", 1 + below(random, 60));
	case 3:
		return repeated("/", 1 + below(random, 600));
	case 4:
		return "/" + noise(random, 1 + below(random, 20)) + "/1/1/" + randomTime + "/1/";
	default:
		return noise(random, 1 + below(random, 600));
	}
}

} // namespace velarix::lab::hostile
