#include "lab/campaigns/Waits.h"

#include <array>
#include <charconv>
#include <functional>
#include <sstream>

namespace velarix::lab
{

namespace
{

constexpr Millis seconds(int count)
{
	return std::chrono::seconds(count);
}

constexpr std::array<FixedWait, 12> waits{{
    {"0", "nothing", [](const PairSettings&) { return Millis(0); }},
    {"interval", "pause of the sender", [](const PairSettings& times) { return seconds(times.interval); }},
    {"receive", "receiving time", [](const PairSettings& times) { return seconds(times.receivingTime); }},
    {"wait", "waiting time before the programs", [](const PairSettings& times) { return seconds(times.waitingTime); }},
    {"silence", "receiving time and the second after it",
     [](const PairSettings& times) { return seconds(times.receivingTime + 1); }},
    {"beat", "until the next heartbeat is heard and served",
     [](const PairSettings& times) { return seconds(times.interval) + Millis(500); }},
    {"ping", "a probe that nobody answers: ten pings", [](const PairSettings&) { return seconds(1); }},
    {"count", "countdown before the start command; with the keeper its ARP probes",
     [](const PairSettings& pair) { return pair.profile == Profile::keeper ? Millis(250) : seconds(5); }},
    {"checks", "until a program that hangs has failed its checks", [](const PairSettings&) { return seconds(6); }},
    {"second", "pause after a failed check", [](const PairSettings&) { return seconds(1); }},
    {"half", "pause after a start command that printed", [](const PairSettings&) { return Millis(500); }},
    {"two", "pause of a sender that is refused, or of a fresh agent before it begins",
     [](const PairSettings&) { return seconds(2); }},
}};

struct Term
{
	int factor = 1;
	const FixedWait* wait = nullptr;
};

Term termFrom(std::string_view text)
{
	Term term;
	const std::size_t star = text.find('*');
	std::string_view name = text;
	if (star != std::string_view::npos)
	{
		const char* end = text.data() + star;
		const auto [stopped, failure] = std::from_chars(text.data(), end, term.factor);
		name = failure == std::errc() && stopped == end ? text.substr(star + 1) : std::string_view();
	}
	term.wait = waitNamed(name);
	if (term.wait == nullptr)
	{
		throw LabError("\"" + std::string(text) + "\" is no fixed wait");
	}
	return term;
}

void forEachTerm(std::string_view expression, const std::function<void(const Term&)>& visit)
{
	for (std::size_t begin = 0; begin <= expression.size();)
	{
		const std::size_t end = std::min(expression.find('+', begin), expression.size());
		visit(termFrom(expression.substr(begin, end - begin)));
		begin = end + 1;
	}
}

std::string lengthText(Millis length)
{
	std::ostringstream text;
	text << static_cast<double>(length.count()) / 1000 << " s";
	return text.str();
}

} // namespace

const FixedWait* waitNamed(std::string_view name)
{
	for (const FixedWait& wait : waits)
	{
		if (name == wait.name)
		{
			return &wait;
		}
	}
	return nullptr;
}

Millis sumOf(std::string_view expression, const PairSettings& times)
{
	Millis sum{0};
	forEachTerm(expression, [&](const Term& term) { sum += term.factor * term.wait->length(times); });
	return sum;
}

std::string explained(std::string_view expression, const PairSettings& times)
{
	std::string text;
	forEachTerm(expression,
	            [&](const Term& term)
	            {
		            text += text.empty() ? "" : " + ";
		            text += term.factor == 1 ? std::string() : std::to_string(term.factor) + " * ";
		            text += std::string(term.wait->name) + " " + lengthText(term.wait->length(times));
	            });
	return text;
}

} // namespace velarix::lab
