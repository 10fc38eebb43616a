#include "ctl/init/Answers.h"

#include <algorithm>
#include <functional>
#include <istream>
#include <ostream>

#include <Poco/Net/IPAddress.h>
#include <Poco/String.h>

#include "inspect/ExitCode.h"
#include "inspect/Number.h"
#include "inspect/Pattern.h"
#include "keeper/Settings.h"

namespace velarix::ctl
{

using namespace inspect;

namespace
{

using Poco::Net::IPAddress;

constexpr char kProgramsOption[] = "program";
constexpr char kServiceOption[] = "service";

std::string addressFault(const std::string& text)
{
	IPAddress address;
	const bool valid = IPAddress::tryParse(text, address) && address.family() == IPAddress::IPv4;
	// The library takes "10.1" for an address too.
	if (!valid || address.toString() != text)
	{
		return "no IPv4 address: \"" + text + "\"";
	}
	const std::optional<int> first = numberIn<int>(std::string_view(text).substr(0, text.find('.')));
	constexpr int kLoopback = 127;
	constexpr int kMulticast = 224;
	return first == 0 || first == kLoopback || first >= kMulticast ? "no address of a single host: " + text : "";
}

std::string hostOf(const std::string& answer)
{
	return answer.substr(0, answer.find('/'));
}

std::string virtualIPFault(const std::string& text)
{
	const std::size_t slash = text.find('/');
	const std::optional<int> prefix =
	    slash == std::string::npos ? 32 : numberIn<int>(std::string_view(text).substr(slash + 1));
	if (!prefix || *prefix < 1 || *prefix > 32)
	{
		return "no prefix length from 1 to 32 behind the \"/\": \"" + text + "\"";
	}
	const std::string host = hostOf(text);
	const std::string fault = addressFault(host);
	constexpr int kLongestOfNetworks = 30;
	if (!fault.empty() || *prefix > kLongestOfNetworks)
	{
		return fault;
	}
	const IPAddress address(host);
	const IPAddress mask(static_cast<unsigned>(*prefix), IPAddress::IPv4);
	const bool network = (address & mask) == address;
	return network || (address | ~mask) == address
	           ? host + (network ? " is the network" : " is the broadcast address") + " of " + text
	           : "";
}

/// Asks until the answer, a line without blanks around it, has no fault.
std::string askUntil(std::istream& in, std::ostream& out, const std::string& prompt,
                     const std::function<std::string(const std::string&)>& faultOf)
{
	for (std::string answer;;)
	{
		out << prompt << ": " << std::flush;
		if (!std::getline(in, answer))
		{
			out << '\n';
			throw Failure(ExitCode::usage, "the input ended before everything was answered; nothing was written");
		}
		Poco::trimInPlace(answer);
		const std::string fault = faultOf(answer);
		if (fault.empty())
		{
			return answer;
		}
		out << fault << '\n';
	}
}

std::string nameFault(const std::string& name)
{
	return keeper::isServiceName(name) ? "" : "no name of a service: \"" + name + "\"; " + keeper::kServiceName;
}

/// @param name of a key of keeper.ini
/// @return what the keeper has against the value; empty for nothing
std::string valueFault(const std::string& name, const std::string& value)
{
	const std::span<const keeper::KeyInfo> keys = keeper::keyTable();
	const auto key = std::ranges::find_if(keys, [&](const keeper::KeyInfo& known)
	                                      { return known.section == std::string("service") && known.name == name; });
	keeper::Settings scratch{.address = {}, .reach = {}, .services = {{}}};
	const std::string fault = keeper::setKey(scratch, *key, value);
	return fault.empty() ? "" : "\"" + value + "\" " + fault;
}

bool isUnit(const std::string& runs)
{
	return runs.ends_with(".service") && runs.find_first_of(" /") == std::string::npos;
}

void askServices(Answers& answers, std::istream& in, std::ostream& out)
{
	const auto optional = [](const char* key)
	{ return [key](const std::string& value) { return value.empty() ? "" : valueFault(key, value); }; };
	for (;;)
	{
		ServiceAnswer service;
		const bool first = answers.services.empty();
		service.name =
		    askUntil(in, out, first ? "Name of the service, as web" : "Name of another service (nothing: no more)",
		             [&](const std::string& name) { return name.empty() && !first ? "" : nameFault(name); });
		if (service.name.empty())
		{
			return;
		}
		const std::string runs =
		    askUntil(in, out, "Its command with arguments, or its systemd unit (NAME.service)",
		             [](const std::string& text) { return valueFault(isUnit(text) ? "unit" : "command", text); });
		(isUnit(runs) ? service.unit : service.command) = runs;
		service.user = isUnit(runs) ? "" : askUntil(in, out, "User that runs it (nothing: root)", optional("user"));
		service.check =
		    askUntil(in, out, "Command that ends with 0 while it is well (nothing: none)", optional("check"));
		answers.services.push_back(service);
	}
}

} // namespace

std::string_view textOf(NodeName node)
{
	return node == NodeName::a ? "a" : "b";
}

const std::vector<Question>& questions()
{
	static const std::vector<Question> kQuestions{
	    {"address-a", "Address of node a on the communication network (eth1)", &Answers::addressA, addressFault},
	    {"address-b", "Address of node b on the communication network (eth1)", &Answers::addressB, addressFault},
	    {"gateway", "Address that answers pings as long as a node's network works (the gateway)", &Answers::gateway,
	     addressFault},
	    {"virtual-ip", "Shared service address with its prefix length, as 198.51.100.10/24", &Answers::virtualIP,
	     virtualIPFault},
	};
	return kQuestions;
}

const std::vector<ServiceOption>& serviceOptions()
{
	static const std::vector<ServiceOption> kOptions{
	    {kServiceOption, "NAME=COMMAND", "a service: its command with arguments; once for each",
	     &ServiceAnswer::command, "command"},
	    {"unit", "NAME=UNIT", "a service: its systemd unit, which has to be disabled; once for each",
	     &ServiceAnswer::unit, "unit"},
	    {"service-user", "NAME=USER", "who runs that service's command and check", &ServiceAnswer::user, "user"},
	    {"service-check", "NAME=COMMAND", "a command that ends with 0 while that service is well",
	     &ServiceAnswer::check, "check"},
	};
	return kOptions;
}

std::string addService(Answers& answers, const ServiceOption& option, const std::string& given)
{
	const std::size_t equals = given.find('=');
	const std::string name = given.substr(0, equals);
	if (equals == 0 || equals == std::string::npos || equals + 1 == given.size())
	{
		return std::string("not ") + option.type + ": \"" + given + "\"";
	}
	std::string fault = nameFault(name);
	fault = fault.empty() ? valueFault(option.key, given.substr(equals + 1)) : fault;
	if (!fault.empty())
	{
		return fault;
	}
	auto service = std::ranges::find(answers.services, name, &ServiceAnswer::name);
	const bool adds = option.answer == &ServiceAnswer::command || option.answer == &ServiceAnswer::unit;
	if (adds == (service != answers.services.end()))
	{
		return (adds ? "a second service " : "there is no service ") + name;
	}
	if (adds)
	{
		service = answers.services.insert(service, ServiceAnswer{name, {}, {}, {}, {}});
	}
	(*service).*option.answer = given.substr(equals + 1);
	return {};
}

std::vector<std::string> missingOptions(const Answers& answers)
{
	std::vector<std::string> missing;
	for (const Question& question : questions())
	{
		if ((answers.*question.answer).empty())
		{
			missing.push_back(std::string("--") + question.option);
		}
	}
	if (answers.services.empty() && answers.programs.empty())
	{
		missing.push_back(std::string("--") + kServiceOption);
	}
	return missing;
}

std::vector<std::string> faults(const Answers& answers)
{
	std::vector<std::string> result;
	const auto tell = [&](const std::string& option, const std::string& fault)
	{
		if (!fault.empty())
		{
			result.push_back("--" + option + ": " + fault);
		}
	};
	for (const Question& question : questions())
	{
		const std::string& answer = answers.*question.answer;
		tell(question.option, answer.empty() ? "" : question.fault(answer));
	}
	tell("tunnel-a", addressFault(answers.tunnelA));
	tell("tunnel-b", addressFault(answers.tunnelB));
	static const Pattern key("([A-Za-z0-9+/]{43}=)?");
	tell("partner-key", key.matched(answers.partnerKey).empty() ? "no public key of WireGuard" : "");
	tell("partner-key", answers.partnerKey.empty() || answers.wireguard ? "" : "without --wireguard");
	for (const std::string& target : answers.targets)
	{
		tell("target", addressFault(target));
	}
	tell("needed", answers.needed != 1 && answers.targets.empty() ? "without --target" : "");
	// Another node or router may have it: the keeper would claim it.
	if (!answers.targets.empty() && !answers.gateway.empty() && answers.gateway != kReachAddress)
	{
		tell("gateway", "with --target the keeper holds this address itself: leave it out");
	}
	if (!answers.targets.empty() && answers.services.empty())
	{
		tell("target", "the keeper pings them: make each program a --service");
	}
	for (const std::string& program : answers.programs)
	{
		const bool whole = program.starts_with('/') && !program.ends_with('/');
		tell(kProgramsOption, whole ? "" : "no absolute path of a program: \"" + program + "\"");
	}
	if (!answers.programs.empty())
	{
		tell(kProgramsOption, answers.services.empty() ? "" : "beside services: make each program a --service");
		tell("virtual-ip", answers.virtualIP.find('/') == std::string::npos
		                       ? "no prefix length: write " + answers.virtualIP + "/24, for example"
		                       : "");
	}
	return result;
}

void complete(Answers& answers)
{
	if (!answers.targets.empty() && answers.gateway.empty())
	{
		answers.gateway = kReachAddress;
	}
}

void askFor(Answers& answers, std::istream& in, std::ostream& out)
{
	for (const Question& question : questions())
	{
		std::string& answer = answers.*question.answer;
		const auto faultOf = [&](const std::string& given)
		{
			const std::string fault = question.fault(given);
			const auto same =
			    std::ranges::find_if(questions(), [&](const Question& other)
			                         { return &other != &question && hostOf(answers.*other.answer) == hostOf(given); });
			return !fault.empty() || same == questions().end() ? fault
			                                                   : hostOf(given) + " is given already: " + same->text;
		};
		answer = answer.empty() ? askUntil(in, out, question.text, faultOf) : answer;
	}
	if (answers.services.empty() && answers.programs.empty())
	{
		askServices(answers, in, out);
	}
}

} // namespace velarix::ctl
