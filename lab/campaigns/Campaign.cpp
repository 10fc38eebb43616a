#include "lab/campaigns/Campaign.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <sstream>

#include <sys/prctl.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include "lab/campaigns/Json.h"
#include "lab/core/Basics.h"

namespace velarix::lab
{

namespace
{

/// A child says lines of JSON with one of these keys, in a file in memory that outlives it.
constexpr const char* partKey = "part";
constexpr const char* wellKey = "text";
constexpr const char* illKey = "problem";

bool say(int file, const char* key, const std::string& text)
{
	const std::string line = jsonText({{key, text}}) + "\n";
	return ::write(file, line.data(), line.size()) == static_cast<ssize_t>(line.size());
}

/// Leaves without the caller's own clean-up.
[[noreturn]] void beChild(int file, pid_t parent, Millis limit, std::size_t index, const Work& work)
{
	const itimerval end{{}, {limit.count() / 1000, limit.count() % 1000 * 1000}};
	// A parent that ended before the call would send no signal any more.
	if (::prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || ::getppid() != parent ||
	    ::setitimer(ITIMER_REAL, &end, nullptr) != 0)
	{
		_exit(1);
	}
	const char* key = illKey;
	std::string text;
	try
	{
		text = work(index, [file](const std::string& part) { say(file, partKey, part); });
		key = wellKey;
	}
	catch (const std::exception& error)
	{
		text = error.what();
	}
	catch (...)
	{
		text = "it threw something that is no error";
	}
	_exit(say(file, key, text) ? 0 : 1);
}

std::string endingOf(int status)
{
	if (WIFSIGNALED(status))
	{
		return WTERMSIG(status) == SIGALRM ? "it did not end in time"
		                                   : "it was killed by signal " + std::to_string(WTERMSIG(status));
	}
	return WEXITSTATUS(status) == 0 ? "it ended before it had said everything"
	                                : "it ended with status " + std::to_string(WEXITSTATUS(status));
}

/// One process.
struct Child
{
	std::size_t index;
	Descriptor said;
};

WorkerResult resultOf(const Child& child, int status)
{
	WorkerResult result{child.index, {}, endingOf(status), {}};
	std::istringstream said(contentOf(child.said));
	// What a killed process has left of a line is no line.
	for (std::string line; std::getline(said, line) && !said.eof();)
	{
		const nlohmann::json words = nlohmann::json::parse(line);
		if (words.contains(partKey))
		{
			result.parts.push_back(words[partKey]);
		}
		else if (words.contains(illKey))
		{
			const std::string problem = words[illKey];
			result.problem = problem.empty() ? "it failed and did not say why" : problem;
		}
		else if (status == 0)
		{
			result.text = words[wellKey];
			result.problem.clear();
		}
	}
	return result;
}

} // namespace

void runInWorkers(std::size_t count, int jobs, Millis limit, const Work& work,
                  const std::function<void(const WorkerResult&)>& done)
{
	const pid_t parent = ::getpid();
	std::map<pid_t, Child> children;
	// Where this one cannot go on, none of them does.
	auto endAll = [&children](const void*)
	{
		for (const auto& [pid, child] : children)
		{
			::kill(pid, SIGKILL);
			::waitpid(pid, nullptr, 0);
		}
	};
	const std::unique_ptr<const void, decltype(endAll)> ender(&children, endAll);
	std::size_t next = 0;
	while (next < count || !children.empty())
	{
		while (next < count && children.size() < static_cast<std::size_t>(jobs))
		{
			Child child{next++, fileInMemory()};
			const pid_t pid = ::fork();
			if (pid == 0)
			{
				beChild(child.said.get(), parent, limit, child.index, work);
			}
			if (pid < 0)
			{
				throwErrno("cannot make a process for a run");
			}
			children.emplace(pid, std::move(child));
		}
		int status = 0;
		const pid_t ended = ::waitpid(-1, &status, 0);
		if (const auto child = children.find(ended); child != children.end())
		{
			const WorkerResult result = resultOf(child->second, status);
			children.erase(child);
			done(result);
		}
	}
}

void tellRun(const CampaignOptions& options, const std::string& progress, const std::string& title,
             const std::vector<std::string>& differences, const std::string& timeline)
{
	std::cerr << progress << title << (differences.empty() ? ": as expected\n" : ": NOT AS EXPECTED\n");
	for (const std::string& difference : differences)
	{
		std::cerr << "    " << difference << '\n';
	}
	if (!options.timelines.empty() && !timeline.empty())
	{
		std::string name = title + ".txt";
		std::erase(name, ',');
		std::ranges::replace_if(
		    name, [](char letter) { return letter == '/' || letter == ' '; }, '-');
		std::filesystem::create_directories(options.timelines);
		writeFile(std::filesystem::path(options.timelines) / name, timeline);
	}
}

void deliver(const CampaignOptions& options, const std::string& text, const nlohmann::json& report)
{
	if (!options.records.empty())
	{
		writeFile(options.records, jsonFileText(report));
	}
	const std::string shown = options.form == "json" ? jsonFileText(report) : text;
	if (!options.output.empty())
	{
		writeFile(options.output, shown);
		return;
	}
	std::cout << shown << std::flush;
	if (!std::cout)
	{
		throw LabError("cannot write the report to standard output");
	}
}

} // namespace velarix::lab
