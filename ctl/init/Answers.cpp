#include "ctl/init/Answers.h"

#include <istream>
#include <ostream>

#include <Poco/Net/IPAddress.h>
#include <Poco/String.h>

#include "inspect/ExitCode.h"
#include "inspect/Number.h"

namespace velarix::ctl
{

using namespace inspect;

namespace
{

using Poco::Net::IPAddress;

constexpr char kProgramsOption[] = "program";

std::string addressFault(const std::string& text)
{
	IPAddress address;
	const bool valid = IPAddress::tryParse(text, address) && address.family() == IPAddress::IPv4;
	// The library takes "10.1" for an address too.
	return valid && address.toString() == text ? "" : "no IPv4 address: \"" + text + "\"";
}

std::string virtualIPFault(const std::string& text)
{
	const std::size_t slash = text.find('/');
	if (slash == std::string::npos)
	{
		return "no prefix length: write " + text + "/24, for example";
	}
	const std::optional<int> prefix = numberIn<int>(std::string_view(text).substr(slash + 1));
	if (!prefix || *prefix < 1 || *prefix > 32)
	{
		return "no prefix length from 1 to 32 behind the \"/\": \"" + text + "\"";
	}
	return addressFault(text.substr(0, slash));
}

/// @return the next line, trimmed
std::string ask(std::istream& in, std::ostream& out, const std::string& prompt)
{
	out << prompt << ": " << std::flush;
	std::string line;
	if (!std::getline(in, line))
	{
		out << '\n';
		throw Failure(ExitCode::usage, "the input ended before everything was answered; nothing was written");
	}
	return Poco::trim(line);
}

void askPrograms(Answers& answers, std::istream& in, std::ostream& out)
{
	for (;;)
	{
		const bool first = answers.programs.empty();
		const std::string path = ask(in, out,
		                             first ? "Path of the managed program, without arguments"
		                                   : "Path of another program (nothing: no more)");
		if (path.empty() && !first)
		{
			return;
		}
		const std::string fault = programFault(path);
		fault.empty() ? answers.programs.push_back(path) : void(out << fault << '\n');
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

std::string programFault(const std::string& path)
{
	return path.starts_with('/') && !path.ends_with('/') ? "" : "no absolute path of a program: \"" + path + "\"";
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
	if (answers.programs.empty())
	{
		missing.push_back(std::string("--") + kProgramsOption);
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
	for (const std::string& program : answers.programs)
	{
		tell(kProgramsOption, programFault(program));
	}
	return result;
}

void askFor(Answers& answers, std::istream& in, std::ostream& out)
{
	for (const Question& question : questions())
	{
		std::string& answer = answers.*question.answer;
		while (answer.empty())
		{
			const std::string given = ask(in, out, question.text);
			const std::string fault = question.fault(given);
			fault.empty() ? answer = given, void() : void(out << fault << '\n');
		}
	}
	if (answers.programs.empty())
	{
		askPrograms(answers, in, out);
	}
}

} // namespace velarix::ctl
