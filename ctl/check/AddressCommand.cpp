#include "ctl/check/AddressCommand.h"

#include <algorithm>
#include <set>
#include <string_view>

#include <Poco/Net/IPAddress.h>

#include "inspect/Number.h"

namespace velarix::ctl::shell
{

using namespace inspect;

namespace
{

/// "ip" takes every beginning of its words.
bool abbreviates(const std::string& word, std::string_view whole)
{
	return !word.empty() && whole.starts_with(word);
}

void splitPrefix(AddressAction& action, const std::string& word)
{
	const std::size_t slash = word.find('/');
	action.address = word.substr(0, slash);
	if (slash != std::string::npos)
	{
		action.prefix = numberIn<int>(std::string_view(word).substr(slash + 1));
	}
	else if (action.adds)
	{
		// Dropping without a prefix takes the address whatever its prefix is.
		action.prefix = 32;
	}
}

/// @return the prefix of "netmask 255.255.255.0" among the words
std::optional<int> netmaskPrefix(const std::vector<std::string>& words)
{
	const auto keyword = std::ranges::find(words, "netmask");
	Poco::Net::IPAddress mask;
	if (keyword == words.end() || keyword + 1 == words.end() || !Poco::Net::IPAddress::tryParse(*(keyword + 1), mask))
	{
		return std::nullopt;
	}
	return static_cast<int>(mask.prefixLength());
}

/// The words behind "ip addr add": ADDRESS[/PREFIX] and pairs of a keyword and a value.
void takeParameters(AddressAction& action, const std::vector<std::string>& words, std::size_t at)
{
	static const std::set<std::string> kPairs{"broadcast", "brd",    "scope",         "peer",
	                                          "remote",    "metric", "preferred_lft", "valid_lft"};
	for (; at < words.size(); ++at)
	{
		const bool last = at + 1 == words.size();
		if (words[at] == "dev" && !last)
		{
			action.card = words[++at];
		}
		else if (words[at] == "label" && !last)
		{
			action.label = words[++at];
		}
		else if (kPairs.contains(words[at]))
		{
			++at;
		}
		else if (action.address.empty() && words[at] != "local" && words[at].find_first_of("0123456789$") == 0)
		{
			splitPrefix(action, words[at]);
		}
	}
}

std::optional<AddressAction> ipAction(const std::vector<std::string>& words)
{
	std::size_t at = 1;
	while (at < words.size() && words[at].starts_with('-'))
	{
		++at;
	}
	if (at + 1 >= words.size() || !abbreviates(words[at], "address"))
	{
		return std::nullopt;
	}
	const std::string& verb = words[at + 1];
	AddressAction action;
	action.adds = abbreviates(verb, "add") || abbreviates(verb, "replace") || abbreviates(verb, "change");
	if (!action.adds && !abbreviates(verb, "delete"))
	{
		return std::nullopt;
	}
	takeParameters(action, words, at + 2);
	return action;
}

std::optional<AddressAction> ifconfigAction(const std::vector<std::string>& words)
{
	if (words.size() < 3)
	{
		return std::nullopt;
	}
	AddressAction action;
	action.card = words[1].substr(0, words[1].find(':'));
	action.label = words[1].find(':') == std::string::npos ? "" : words[1];
	if (words[2] == "down" || words[2] == "del")
	{
		action.address = words[2] == "del" && words.size() > 3 ? words[3] : "";
		return action;
	}
	action.adds = true;
	const std::size_t at = words[2] == "add" && words.size() > 3 ? 3 : 2;
	if (words[at].find('.') == std::string::npos)
	{
		return std::nullopt;
	}
	splitPrefix(action, words[at]);
	if (words[at].find('/') == std::string::npos)
	{
		action.prefix = netmaskPrefix(words);
	}
	return action;
}

} // namespace

std::optional<AddressAction> addressAction(const Command& command)
{
	const std::vector<std::string> words = programWords(command);
	const std::string program = words.empty() ? "" : baseName(words[0]);
	if (program == "ip")
	{
		return ipAction(words);
	}
	return program == "ifconfig" ? ifconfigAction(words) : std::nullopt;
}

std::vector<AddressAction> addressActions(const Script& script)
{
	std::vector<AddressAction> actions;
	forEachSimple(script,
	              [&](const Command& command, const Place&)
	              {
		              if (const std::optional<AddressAction> action = addressAction(command))
		              {
			              actions.push_back(*action);
		              }
	              });
	return actions;
}

bool isVariable(const std::string& text)
{
	return text.empty() || text.front() == '$';
}

} // namespace velarix::ctl::shell
