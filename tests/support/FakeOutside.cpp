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

template <typename T> class Turns
{
public:
	explicit Turns(std::vector<T> values) : m_values(std::move(values)) {}
	T next() { return m_next + 1 < m_values.size() ? m_values[m_next++] : m_values[m_next]; }

private:
	std::vector<T> m_values;
	std::size_t m_next = 0;
};

struct Script
{
	std::map<std::string, Turns<std::string>> outputs;
	std::set<std::string> failing;
	std::map<std::string, int> system;
	std::map<std::string, Turns<int>> replies;
	std::map<std::string, std::function<void()>> throwers; ///< by how the event begins
	std::function<void(const std::string&)> onAction;
};

std::recursive_mutex g_mutex;
Script g_script;
int g_openPipes = 0;

void record(const std::string& event)
{
	events::add(event);
	std::function<void(const std::string&)> handler;
	std::function<void()> thrower;
	{
		const std::lock_guard lock(g_mutex);
		handler = g_script.onAction;
		for (const auto& [begin, throws] : g_script.throwers)
		{
			thrower = event.starts_with(begin) ? throws : thrower;
		}
	}
	handler ? handler(event) : void();
	thrower ? thrower() : void();
}

std::FILE* streamOf(const std::string& text)
{
	const int descriptor = ::memfd_create("output", 0);
	std::FILE* pFile = ::fdopen(descriptor, "w+");
	std::fwrite(text.data(), 1, text.size(), pFile);
	std::rewind(pFile);
	return pFile;
}

void reset()
{
	const std::lock_guard lock(g_mutex);
	g_script = Script();
	g_openPipes = 0;
}

const bool g_isReset = events::resetForEachTest(reset);

} // namespace

namespace fakeoutside
{

void commandPrints(const std::string& command, const std::string& output)
{
	commandPrintsInTurn(command, {output});
}

void commandPrintsInTurn(const std::string& command, std::vector<std::string> outputs)
{
	const std::lock_guard lock(g_mutex);
	g_script.failing.erase(command);
	g_script.outputs.insert_or_assign(command, Turns<std::string>(std::move(outputs)));
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

void pingGives(const std::string& address, int replies)
{
	pingGivesInTurn(address, {replies});
}

void pingGivesInTurn(const std::string& address, std::vector<int> replies)
{
	const std::lock_guard lock(g_mutex);
	g_script.throwers.erase("ping " + address + " ");
	g_script.replies.insert_or_assign(address, Turns<int>(std::move(replies)));
}

void pingThrows(const std::string& address, std::function<void()> thrower)
{
	const std::lock_guard lock(g_mutex);
	g_script.throwers["ping " + address + " "] = std::move(thrower);
}

void launchThrows(const std::string& path, std::function<void()> thrower)
{
	const std::lock_guard lock(g_mutex);
	g_script.throwers["launch " + path] = std::move(thrower);
}

void onAction(std::function<void(const std::string&)> handler)
{
	const std::lock_guard lock(g_mutex);
	g_script.onAction = std::move(handler);
}

int openPipes()
{
	const std::lock_guard lock(g_mutex);
	return g_openPipes;
}

} // namespace fakeoutside

namespace outside
{

std::FILE* openPipe(const std::string& command)
{
	record("command " + command);
	const std::lock_guard lock(g_mutex);
	if (g_script.failing.contains(command))
	{
		return nullptr;
	}
	const auto it = g_script.outputs.find(command);
	++g_openPipes;
	return streamOf(it == g_script.outputs.end() ? "" : it->second.next());
}

int closePipe(std::FILE* pipe)
{
	const std::lock_guard lock(g_mutex);
	--g_openPipes;
	return std::fclose(pipe);
}

int runShell(const std::string& command)
{
	record("system " + command);
	const std::lock_guard lock(g_mutex);
	const auto it = g_script.system.find(command);
	return it == g_script.system.end() ? 0 : it->second;
}

Poco::ProcessHandle launch(const std::string& path, const std::vector<std::string>& arguments)
{
	record("launch " + path + (arguments.empty() ? "" : " with arguments"));
	return Poco::Process::launch("/bin/true", {});
}

int ping(const std::string& address, int count)
{
	record("ping " + address + " x" + std::to_string(count));
	const std::lock_guard lock(g_mutex);
	const auto it = g_script.replies.find(address);
	return it == g_script.replies.end() ? count : std::min(it->second.next(), count);
}

} // namespace outside
