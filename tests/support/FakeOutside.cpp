#include "FakeOutside.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <set>

#include <sys/mman.h>
#include <unistd.h>

#include "Events.h"
#include "Outside.h"

namespace
{

/// Values that come one after the other, the last one for good.
template <typename T> using Turns = std::map<std::string, std::vector<T>>;

struct Script
{
	Turns<std::string> outputs;
	Turns<int> replies;
	std::set<std::string> failing;
	std::map<std::string, int> system;
	int openPipes = 0;
};

std::mutex g_mutex;
Script g_script;

template <typename T> T next(Turns<T>& turns, const std::string& key, T otherwise)
{
	const auto it = turns.find(key);
	if (it == turns.end())
	{
		return otherwise;
	}
	const T value = it->second.front();
	if (it->second.size() > 1)
	{
		it->second.erase(it->second.begin());
	}
	return value;
}

std::FILE* streamOf(const std::string& text)
{
	std::FILE* pFile = ::fdopen(::memfd_create("output", 0), "w+");
	std::fwrite(text.data(), 1, text.size(), pFile);
	std::rewind(pFile);
	return pFile;
}

const bool g_isReset = events::resetForEachTest([] { g_script = Script(); });

} // namespace

namespace fakeoutside
{

void commandPrints(const std::string& command, std::vector<std::string> outputs)
{
	const std::lock_guard lock(g_mutex);
	g_script.failing.erase(command);
	g_script.outputs[command] = std::move(outputs);
}

void commandFails(const std::string& command)
{
	const std::lock_guard lock(g_mutex);
	g_script.failing.insert(command);
}

void systemGives(const std::string& command, int result)
{
	const std::lock_guard lock(g_mutex);
	g_script.system[command] = result;
}

void pingGives(const std::string& address, std::vector<int> replies)
{
	const std::lock_guard lock(g_mutex);
	g_script.replies[address] = std::move(replies);
}

int openPipes()
{
	const std::lock_guard lock(g_mutex);
	return g_script.openPipes;
}

} // namespace fakeoutside

namespace outside
{

std::FILE* openPipe(const std::string& command)
{
	events::add("command " + command);
	const std::lock_guard lock(g_mutex);
	if (g_script.failing.contains(command))
	{
		return nullptr;
	}
	++g_script.openPipes;
	return streamOf(next<std::string>(g_script.outputs, command, ""));
}

int closePipe(std::FILE* pipe)
{
	const std::lock_guard lock(g_mutex);
	--g_script.openPipes;
	return std::fclose(pipe);
}

int runShell(const std::string& command)
{
	events::add("system " + command);
	const std::lock_guard lock(g_mutex);
	const auto it = g_script.system.find(command);
	return it == g_script.system.end() ? 0 : it->second;
}

Poco::ProcessHandle launch(const std::string& path, const std::vector<std::string>& arguments)
{
	events::add("launch " + path + (arguments.empty() ? "" : " with arguments"));
	return Poco::Process::launch("/bin/true", {});
}

int ping(const std::string& address, int count)
{
	events::add("ping " + address + " x" + std::to_string(count));
	const std::lock_guard lock(g_mutex);
	return std::min(next(g_script.replies, address, count), count);
}

} // namespace outside
