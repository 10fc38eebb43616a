#include "ctl/init/Answers.h"

#include <algorithm>
#include <functional>

#include <CLI/CLI.hpp>
#include <Poco/Net/IPAddress.h>
#include <Poco/String.h>

#include "ctl/Options.h"
#include "ctl/Program.h"
#include "inspect/Number.h"
#include "inspect/Pattern.h"
#include "keeper/Settings.h"

namespace velarix::ctl
{

namespace
{

using Poco::Net::IPAddress;

/// The gateway of a pair with reachability targets: nobody's, and never routed (RFC 7600).
constexpr char kReachAddress[] = "192.0.0.8";

std::string addressFault(const std::string& text)
{
	IPAddress address;
	const bool valid = IPAddress::tryParse(text, address) && address.family() == IPAddress::IPv4;
	// The library takes "10.1" for an address too.
	if (!valid || address.toString() != text)
	{
		return "no IPv4 address: \"" + text + "\"";
	}
	const int first = numberIn<int>(std::string_view(text).substr(0, text.find('.'))).value_or(0);
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
	std::string fault = addressFault(host);
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

/// One thing that has no default.
struct Question
{
	/// The option that answers it, without "--".
	const char* option;
	const char* text;
	std::string Answers::*answer;
	/// @return what is wrong with an answer; empty when nothing is
	std::string (*fault)(const std::string& answer);
	const char* type = "ADDRESS";
};

/// All but services and programs.
constexpr std::array<Question, 4> kQuestions{{
    {"address-a", "Address of node a on the communication network (eth1)", &Answers::addressA, addressFault},
    {"address-b", "Address of node b on the communication network (eth1)", &Answers::addressB, addressFault},
    {"gateway", "Address that answers pings as long as a node's network works (the gateway)", &Answers::gateway,
     addressFault},
    {"virtual-ip", "Shared service address with its prefix length, as 198.51.100.10/24", &Answers::virtualIP,
     virtualIPFault, "ADDRESS/PREFIX"},
}};

/// @return the options whose answer is still missing
std::vector<std::string> missingOptions(const Answers& answers)
{
	std::vector<std::string> missing;
	for (const Question& question : kQuestions)
	{
		if ((answers.*question.answer).empty())
		{
			missing.push_back(std::string("--") + question.option);
		}
	}
	if (answers.services.empty() && answers.programs.empty())
	{
		missing.emplace_back("--service");
	}
	return missing;
}

/// @throws Failure usage for the first answer that is wrong
void demandSound(const Answers& answers)
{
	const auto demand = [](const std::string& option, const std::string& fault)
	{
		if (!fault.empty())
		{
			throw Failure(ExitCode::usage, "--" + option + ": " + fault);
		}
	};
	for (const Question& question : kQuestions)
	{
		const std::string& answer = answers.*question.answer;
		demand(question.option, answer.empty() ? "" : question.fault(answer));
	}
	demand("tunnel-a", addressFault(answers.tunnelA));
	demand("tunnel-b", addressFault(answers.tunnelB));
	static const Pattern key("([A-Za-z0-9+/]{43}=)?");
	demand("partner-key", key.matched(answers.partnerKey).empty() ? "no public key of WireGuard" : "");
	demand("partner-key", answers.partnerKey.empty() || answers.wireguard ? "" : "without --wireguard");
	for (const std::string& target : answers.targets)
	{
		demand("target", addressFault(target));
	}
	demand("needed", answers.needed != 1 && answers.targets.empty() ? "without --target" : "");
	// Another node or router may have it: the keeper would claim it.
	if (!answers.targets.empty() && answers.gateway != kReachAddress)
	{
		demand("gateway", "with --target the keeper holds this address itself: leave it out");
	}
	if (!answers.targets.empty() && answers.services.empty())
	{
		demand("target", "the keeper pings them: make each program a --service");
	}
	for (const std::string& program : answers.programs)
	{
		const bool whole = program.starts_with('/') && !program.ends_with('/');
		demand("program", whole ? "" : "no absolute path of a program: \"" + program + "\"");
	}
	if (!answers.programs.empty())
	{
		demand("program", answers.services.empty() ? "" : "beside services: make each program a --service");
		demand("virtual-ip", answers.virtualIP.find('/') == std::string::npos
		                         ? "no prefix length: write " + answers.virtualIP + "/24, for example"
		                         : "");
	}
}

/// Asks until the answer, a line without blanks around it, has no fault.
std::string askUntil(const Context& context, const std::string& prompt,
                     const std::function<std::string(const std::string&)>& faultOf)
{
	for (std::string answer;;)
	{
		context.err << prompt << ": " << std::flush;
		if (!std::getline(*context.in, answer))
		{
			context.err << '\n';
			throw Failure(ExitCode::usage, "the input ended before everything was answered; nothing was written");
		}
		Poco::trimInPlace(answer);
		const std::string fault = faultOf(answer);
		if (fault.empty())
		{
			return answer;
		}
		context.err << fault << '\n';
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

void askServices(Answers& answers, const Context& context)
{
	for (;;)
	{
		const bool first = answers.services.empty();
		const std::string name =
		    askUntil(context, first ? "Name of the service, as web" : "Name of another service (nothing: no more)",
		             [&](const std::string& given)
		             {
			             return given.empty() && !first             ? ""
			                    : answers.services.count(given) > 0 ? "a second service " + given
			                                                        : nameFault(given);
		             });
		if (name.empty())
		{
			return;
		}
		Service& service = answers.services[name];
		const auto askFurther = [&](const char* key, const char* prompt)
		{
			const std::string value =
			    askUntil(context, prompt,
			             [key](const std::string& given) { return given.empty() ? "" : valueFault(key, given); });
			if (!value.empty())
			{
				service[key] = value;
			}
		};
		const std::string runs =
		    askUntil(context, "Its command with arguments, or its systemd unit (NAME.service)",
		             [](const std::string& text) { return valueFault(isUnit(text) ? "unit" : "command", text); });
		service[isUnit(runs) ? "unit" : "command"] = runs;
		if (!isUnit(runs))
		{
			askFurther("user", "User that runs it (nothing: root)");
		}
		askFurther("check", "Command that ends with 0 while it is well (nothing: none)");
	}
}

/// An option NAME=VALUE for the services.
struct ServiceOption
{
	const char* name;
	/// Of the value.
	const char* type;
	const char* text;
	/// Of keeper.ini.
	const char* key;
	/// It begins a service, and does not say more of one.
	bool adds;
};

/// Those that add a service come before those that say more of one.
constexpr std::array<ServiceOption, 4> kServiceOptions{{
    {"--service", "NAME=COMMAND", "a service: its command with arguments; once for each", "command", true},
    {"--unit", "NAME=UNIT", "a service: its systemd unit, which has to be disabled; once for each", "unit", true},
    {"--service-user", "NAME=USER", "who runs that service's command and check", "user", false},
    {"--service-check", "NAME=COMMAND", "a command that ends with 0 while that service is well", "check", false},
}};

/// Takes one "NAME=VALUE".
/// @return what is wrong with it; empty when nothing is
std::string addService(Answers& answers, const ServiceOption& option, const std::string& given)
{
	const std::size_t equals = given.find('=');
	if (equals == 0 || equals == std::string::npos || equals + 1 == given.size())
	{
		return std::string("not ") + option.type + ": \"" + given + "\"";
	}
	const std::string name = given.substr(0, equals);
	const std::string value = given.substr(equals + 1);
	std::string fault = nameFault(name);
	fault = fault.empty() ? valueFault(option.key, value) : fault;
	if (!fault.empty())
	{
		return fault;
	}
	if (option.adds == (answers.services.count(name) > 0))
	{
		return (option.adds ? "a second service " : "there is no service ") + name;
	}
	answers.services[name][option.key] = value;
	return {};
}

/// In the order of the table, which has what says more of a service behind it.
void addServices(CLI::App& verb, Answers& answers)
{
	for (const ServiceOption& option : kServiceOptions)
	{
		const auto take = [&](const std::vector<std::string>& all)
		{
			for (const std::string& given : all)
			{
				if (const std::string fault = addService(answers, option, given); !fault.empty())
				{
					throw CLI::ValidationError(option.name, fault);
				}
			}
		};
		verb.add_option_function<std::vector<std::string>>(option.name, take, option.text)
		    ->type_name(option.type)
		    ->allow_extra_args(false);
	}
}

} // namespace

void addAnswers(CLI::App& verb, Answers& answers)
{
	for (const Question& question : kQuestions)
	{
		option(verb, std::string("--") + question.option, answers.*question.answer, question.type, question.text);
	}
	addServices(verb, answers);
	option(verb, "--program", answers.programs, "PATH",
	       "without the keeper: a program's path, without arguments; once for each")
	    ->allow_extra_args(false);
	option(verb, "--target", answers.targets, "ADDRESS",
	       "a host that answers pings while this node's networks work; once for each")
	    ->allow_extra_args(false);
	preset(verb, "--needed", answers.needed, "INT", "how many targets have to answer");
	verb.add_flag("--wireguard", answers.wireguard,
	              "heartbeats through a WireGuard tunnel, encrypted and authenticated");
	option(verb, "--partner-key", answers.partnerKey, "KEY", "public key of the other node's tunnel");
	preset(verb, "--tunnel-a", answers.tunnelA, "ADDRESS", "address of node a in the tunnel");
	preset(verb, "--tunnel-b", answers.tunnelB, "ADDRESS", "address of node b in the tunnel");
	preset(verb, "--tunnel-port", answers.tunnelPort, "INT", "UDP port of the tunnel, on both nodes")
	    ->check(CLI::Range(1, 65535));
	preset(verb, "--port", answers.port, "INT", "TCP port of the heartbeats, on both nodes");
	preset(verb, "--interval", answers.interval, "INT", "seconds between heartbeats");
	preset(verb, "--receiving-time", answers.receivingTime, "INT",
	       "seconds until a silence, at least twice the interval");
	preset(verb, "--waiting-time", answers.waitingTime, "INT", "seconds between the address and the programs");
	preset(verb, "--check-cycle", answers.checkCycle, "INT", "seconds between looks at the programs");
	preset(verb, "--log", answers.log, "PATH", "the log file");
	preset(verb, "--purge-age", answers.purgeAge, "TIME", "age at which old logs are deleted");
}

bool nothingAnswered(const Answers& answers)
{
	return missingOptions(answers).size() > kQuestions.size();
}

void complete(Answers& answers, const Context& context)
{
	if (!answers.targets.empty() && answers.gateway.empty())
	{
		answers.gateway = kReachAddress;
	}
	demandSound(answers);
	const std::vector<std::string> missing = missingOptions(answers);
	if (!missing.empty() && context.in == nullptr)
	{
		throw Failure(ExitCode::usage, "needed: " + Poco::cat(std::string(" "), missing.begin(), missing.end()) +
		                                   " (asked for when the input is a terminal)");
	}
	for (const Question& question : kQuestions)
	{
		std::string& answer = answers.*question.answer;
		const auto faultOf = [&](const std::string& given)
		{
			const std::string fault = question.fault(given);
			const auto same =
			    std::ranges::find_if(kQuestions, [&](const Question& other)
			                         { return &other != &question && hostOf(answers.*other.answer) == hostOf(given); });
			return !fault.empty() || same == kQuestions.end() ? fault
			                                                  : hostOf(given) + " is given already: " + same->text;
		};
		answer = answer.empty() ? askUntil(context, question.text, faultOf) : answer;
	}
	if (answers.services.empty() && answers.programs.empty())
	{
		askServices(answers, context);
	}
}

} // namespace velarix::ctl
