#include "lab/campaigns/Times.h"

#include <algorithm>
#include <charconv>
#include <sstream>
#include <thread>
#include <vector>

namespace velarix::lab
{

namespace
{

using std::chrono::seconds;

struct FixedWait
{
	const char* name;
	Millis (*length)(const PairSettings& pair);
};

constexpr FixedWait waits[]{
    {"0", [](const PairSettings&) { return Millis(0); }},
    {"interval", [](const PairSettings& pair) -> Millis { return seconds(pair.interval); }},
    {"receive", [](const PairSettings& pair) -> Millis { return seconds(pair.receivingTime); }},
    {"wait", [](const PairSettings& pair) -> Millis { return seconds(pair.waitingTime); }},
    {"silence", [](const PairSettings& pair) -> Millis { return seconds(pair.receivingTime + 1); }},
    {"beat", [](const PairSettings& pair) { return seconds(pair.interval) + Millis(500); }},
    {"ping", [](const PairSettings&) { return Millis(1000); }},
    {"count", [](const PairSettings& pair) { return Millis(pair.profile == Profile::keeper ? 250 : 5000); }},
    {"checks", [](const PairSettings&) { return Millis(6000); }},
    {"second", [](const PairSettings&) { return Millis(1000); }},
    {"half", [](const PairSettings&) { return Millis(500); }},
    {"two", [](const PairSettings&) { return Millis(2000); }},
};

struct Term
{
	int factor = 1;
	std::string name;
	Millis length{0}; ///< of one
};

Term termFrom(const std::string& text, const PairSettings& times)
{
	Term term;
	const std::size_t star = text.find('*');
	term.name = text.substr(star == std::string::npos ? 0 : star + 1);
	const char* end = text.data() + std::min(star, text.size());
	const auto [stopped, failure] = std::from_chars(text.data(), end, term.factor);
	const bool counted = star == std::string::npos || (failure == std::errc() && stopped == end);
	const auto* wait = std::ranges::find_if(waits, [&](const FixedWait& known) { return term.name == known.name; });
	if (!counted || text.starts_with('*') || wait == std::end(waits))
	{
		throw LabError("\"" + text + "\" is no fixed wait");
	}
	term.length = wait->length(times);
	return term;
}

std::vector<Term> termsIn(const std::string& expression, const PairSettings& times)
{
	std::vector<Term> terms;
	for (std::size_t begin = 0; begin <= expression.size();)
	{
		const std::size_t end = std::min(expression.find('+', begin), expression.size());
		terms.push_back(termFrom(expression.substr(begin, end - begin), times));
		begin = end + 1;
	}
	return terms;
}

} // namespace

Millis sumOf(const std::string& expression, const PairSettings& times)
{
	Millis sum{0};
	for (const Term& term : termsIn(expression, times))
	{
		sum += term.factor * term.length;
	}
	return sum;
}

std::string explained(const std::string& expression, const PairSettings& times)
{
	std::ostringstream text;
	for (const char* plus = ""; const Term& term : termsIn(expression, times))
	{
		text << plus << (term.factor == 1 ? "" : std::to_string(term.factor) + " * ") << term.name << ' '
		     << static_cast<double>(term.length.count()) / 1000 << " s";
		plus = " + ";
	}
	return text.str();
}

Millis CampaignTimes::quiet() const
{
	return sumOf("3*silence+4*ping+2*second+count+wait", pair) + slack;
}

std::uint64_t seedOfRun(std::uint64_t seed, int run, const std::string& cell)
{
	std::uint64_t mixed = seed * 1000003U + static_cast<std::uint64_t>(run);
	for (const char letter : cell)
	{
		mixed = mixed * 131U + static_cast<unsigned char>(letter);
	}
	return mixed;
}

void waitForJitter(std::mt19937_64& random, Millis longest)
{
	const auto bound = static_cast<std::uint64_t>(longest.count());
	std::this_thread::sleep_for(Millis(static_cast<Millis::rep>(random() % bound)));
}

} // namespace velarix::lab
