#include "SoundSettings.h"

#include <algorithm>
#include <fstream>
#include <stdexcept>
#include <utility>

#include <gmock/gmock.h>

#include "StoryBook.h"

namespace
{

std::string& lineOf(std::vector<std::string>& lines, const std::string& key)
{
	const auto found =
	    std::ranges::find_if(lines, [&](const std::string& line) { return line.starts_with(key + " ="); });
	if (found == lines.end())
	{
		throw std::invalid_argument("no line of " + key);
	}
	return *found;
}

} // namespace

std::vector<std::string> soundLines(int node)
{
	std::vector<std::string> lines{
	    "[AGENT]",                                // 1
	    "MODE = 1",                               // 2
	    "THIS_SERVER_IP = 192.0.2.1",             // 3
	    "HEART_BEAT_RECEIVE_PORT = 7000",         // 4
	    "PARTNER_IP = 192.0.2.2",                 // 5
	    "PARTNER_HEART_BEAT_RECEIVE_PORT = 7000", // 6
	    "HEART_BEAT_INTERVAL = 1",                // 7
	    "MAX_HEART_BEAT_RECEIING_TIME = 2",       // 8
	    "IGNORE_TIME = 10",                       // 9
	    "GATEWAY_IP = 192.0.2.254",               // 10
	    "VIRTUAL_IP = 198.51.100.10",             // 11
	    ("VIRTUAL_IP_START_COMMAND = (ip addr add 198.51.100.10/24 dev eth0 label eth0:ha; (while ip -4 -o addr show "
	     "dev "
	     "eth0 | grep -q 198.51.100.10/; do arping -q -A -c 1 -w 1 -I eth0 198.51.100.10; sleep 4; done) &) "
	     ">/dev/null 2>&1"),                                                                           // 12
	    "VIRTUAL_IP_STOP_COMMAND = ip addr del 198.51.100.10/24 dev eth0 >/dev/null 2>&1",             // 13
	    "WAITING_TIME_BEFORE_PROCESS_RUN = 1",                                                         // 14
	    "RELATED_PROCESS =",                                                                           // 15
	    "[PROCESS_CHECK]",                                                                             // 16
	    "PROCESS_NUM = 1",                                                                             // 17
	    "PROCESS_PATH1 = /opt/service/bin/server",                                                     // 18
	    "PROCESS_CHECK_CYCLE = 1",                                                                     // 19
	    "OBSERVATION_MODE = 1",                                                                        // 20
	    "[ADVENCE]",                                                                                   // 21
	    "PROCESS_KILL_COMMAND = ip addr del 198.51.100.10/24 dev eth0 >/dev/null 2>&1; killall -q -9", // 22
	    "KEYWORD = defunct",                                                                           // 23
	    "[LOG]",                                                                                       // 24
	    "PATH = /usr/velarix/log/velarix.log",                                                         // 25
	    "PURGEAGE = 30 days",                                                                          // 26
	};
	if (node == 2)
	{
		setKey(lines, "MODE", "2");
		setKey(lines, "THIS_SERVER_IP", "192.0.2.2");
		setKey(lines, "PARTNER_IP", "192.0.2.1");
	}
	return lines;
}

std::string joined(const std::vector<std::string>& lines)
{
	std::string text;
	for (const std::string& line : lines)
	{
		text += line + "\n";
	}
	return text;
}

void setKey(std::vector<std::string>& lines, const std::string& key, const std::string& value)
{
	lineOf(lines, key) = key + " = " + value;
}

void dropKey(std::vector<std::string>& lines, const std::string& key)
{
	lineOf(lines, key).clear();
}

std::vector<std::string> shortForms(const velarix::ctl::CheckReport& report,
                                    const std::function<std::string(const velarix::ctl::Finding&)>& place)
{
	std::vector<std::string> result;
	for (const velarix::ctl::Finding& finding : report.findings)
	{
		for (const std::string& text : {finding.what, finding.effect, finding.remedy})
		{
			EXPECT_FALSE(text.empty()) << finding.id;
			EXPECT_THAT(text, testing::Not(testing::ContainsRegex("[{][0-9][}]"))) << finding.id << " lacks a value";
		}
		const bool isError = finding.severity == velarix::ctl::Severity::error;
		result.push_back((isError ? "error " : "warning ") + finding.id + " " + place(finding));
	}
	return result;
}

std::vector<SettingsCase> casesOf(const char* file)
{
	std::vector<SettingsCase> all;
	std::ifstream lines(file);
	SettingsCase one;
	const auto demand = [file](bool isRight, const std::string& what)
	{ isRight ? void() : throw std::runtime_error(std::string(file) + ": " + what); };
	demand(lines.is_open(), "cannot be read");
	for (std::string line; std::getline(lines, line);)
	{
		if (line.starts_with('#'))
		{
			continue;
		}
		const std::size_t mark = line.rfind("=> ");
		demand(mark != std::string::npos || line.find("=>") == std::string::npos, "no blank behind =>: " + line);
		if (const std::string what = line.substr(0, mark); !what.empty())
		{
			one.lines.push_back(mark == std::string::npos ? what : what.substr(0, what.size() - 1));
		}
		if (mark != std::string::npos)
		{
			const std::string expected = line.substr(mark + 3);
			one.expected = expected == "none" ? std::vector<std::string>{} : split(expected, ", ");
			one.name = "Case" + std::to_string(all.size() + 1);
			all.push_back(std::exchange(one, {}));
		}
	}
	demand(one.lines.empty(), "the last case has no => ");
	return all;
}

void PrintTo(const SettingsCase& one, std::ostream* out)
{
	*out << testing::PrintToString(one.lines);
}

void change(std::vector<std::string>& lines, const std::string& what)
{
	if (what.starts_with("+ "))
	{
		lines.push_back(what.substr(2));
	}
	else if (what.starts_with("drop "))
	{
		dropKey(lines, what.substr(5));
	}
	else
	{
		const std::size_t end = what.find(" =");
		setKey(lines, what.substr(0, end), what.substr(std::min(end + 3, what.size())));
	}
}
