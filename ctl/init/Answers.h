/// What must be known of a pair to write its settings, and how it is asked for.
#pragma once

#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velarix::ctl
{

/// The two nodes; which is which is the operator's choice.
enum class NodeName
{
	a,
	b
};

/// @return "a" or "b"
std::string_view textOf(NodeName node);

struct Answers
{
	/// On the communication network (eth1). Empty until it is answered.
	std::string addressA;
	std::string addressB;
	/// Answers pings as long as a node's own network works; the same for both.
	std::string gateway;
	/// With its prefix: "198.51.100.10/24".
	std::string virtualIP;
	/// Absolute paths.
	std::vector<std::string> programs;

	NodeName master = NodeName::a;
	int port = 7000;
	/// Seconds.
	int interval = 1;
	int receivingTime = 2;
	int waitingTime = 1;
	int checkCycle = 1;
	std::string log = "/usr/velarix/log/velarix.log";
	std::string purgeAge = "30 days";
};

/// One thing that has no default.
struct Question
{
	/// The option that answers it, without "--".
	const char* option;
	const char* text;
	std::string Answers::*answer;
	/// @return what is wrong with an answer; empty when nothing is
	std::string (*fault)(const std::string& answer);
};

/// All but the programs.
const std::vector<Question>& questions();

/// @return what is wrong with a program's path; empty when nothing is
std::string programFault(const std::string& path);

/// @return the options whose answer is still missing, "--address-a" and so on
std::vector<std::string> missingOptions(const Answers& answers);

/// @return what is wrong with the answers that were given, as "--OPTION: why"
std::vector<std::string> faults(const Answers& answers);

/// Asks on `out` for what is missing and reads the answers from `in`, one a line.
/// A wrong answer is asked for again.
/// @throws Failure usage when the input ends before
void askFor(Answers& answers, std::istream& in, std::ostream& out);

} // namespace velarix::ctl
