#include "CommandHooks.h"

#include <filesystem>

#include <fcntl.h>
#include <sys/stat.h>

#include "Files.h"

namespace velarix::lab
{

namespace
{

namespace fs = std::filesystem;

std::string hookPath(SetCommand command)
{
	const char* name = command == SetCommand::start ? "start" : (command == SetCommand::stop ? "stop" : "kill");
	return std::string("/usr/velarix/app/on-") + name;
}

std::string gatePath(SetCommand command)
{
	return hookPath(command) + ".gate";
}

/// In one step, so that no command includes half a hook.
void placeHook(const Node& node, SetCommand command, const std::string& text)
{
	node.host();
	const fs::path path = node.file(hookPath(command));
	if (fs::exists(path))
	{
		throw LabError("a command of " + nodeText(node.id()) + " is spoilt already");
	}
	const fs::path fresh = path.string() + ".new";
	writeFile(fresh, text + "\n");
	fs::rename(fresh, path);
}

} // namespace

std::string hookGuard(SetCommand command)
{
	return "[ ! -e " + hookPath(command) + " ] || . " + hookPath(command) + "; ";
}

void makeFail(const Node& node, SetCommand command)
{
	placeHook(node, command, "exit 1");
}

void makePrint(const Node& node, SetCommand command)
{
	placeHook(node, command, "echo done");
}

void makeHang(const Node& node, SetCommand command)
{
	if (::mkfifo(node.file(gatePath(command)).c_str(), 0600) != 0)
	{
		throwErrno("cannot make a command of the node hang");
	}
	placeHook(node, command, "cat " + gatePath(command));
}

/// Whoever waits at the gate finds the end of the file once it has been opened
/// for writing and closed again.
void repair(const Node& node, SetCommand command)
{
	node.host();
	if (!fs::remove(node.file(hookPath(command))))
	{
		throw LabError("no command of " + nodeText(node.id()) + " is spoilt");
	}
	const fs::path gate = node.file(gatePath(command));
	const UniqueFd opened(::open(gate.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
	std::error_code ignored;
	fs::remove(gate, ignored);
}

} // namespace velarix::lab
