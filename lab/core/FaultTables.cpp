#include "lab/core/FaultTables.h"

#include <filesystem>

#include "lab/core/Lab.h"

namespace velarix::lab
{

void nodeOn(Lab& lab, HostId node)
{
	lab.node(node).host();
}

/// A file with the number of its session's first process, which leads a group of all that it starts.
bool jobUnderWay(const Host& host, const std::string& name)
{
	return std::filesystem::exists(host.root() / "run" / name);
}

void startJob(const Host& host, const std::string& name, const std::vector<std::string>& argv)
{
	refuse(jobUnderWay(host, name), "this is done already: " + name);
	// Until there is the group that endJob looks for.
	const std::string start = "cd /run; setsid \"$@\" >" + name + ".says 2>&1 & echo $! >/run/" + name +
	                          "; while kill -0 $! && ! kill -0 -- -$!; do sleep 0.01; done 2>/dev/null";
	std::vector<std::string> words{"bash", "-ec", start, "bash"};
	words.insert(words.end(), argv.begin(), argv.end());
	runOrThrow({words, {}, host.inside()});
}

void endJob(const Host& host, const std::string& name)
{
	refuse(!jobUnderWay(host, name), "this is not being done: " + name);
	shell(host, "cd /run; job=$(cat " + name + "); rm " + name +
	                "; kill -0 -- -$job 2>/dev/null || { echo had ended by itself; cat " + name +
	                ".says; exit 1; }; while kill -KILL -- -$job 2>/dev/null; do sleep 0.02; done");
}

} // namespace velarix::lab
