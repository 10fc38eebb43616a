#include "lab/core/CommandHooks.h"

#include <filesystem>

#include <fcntl.h>
#include <sys/stat.h>

#include "lab/core/Files.h"

namespace velarix::lab
{

namespace
{

namespace fs = std::filesystem;

/// A command that hangs waits at its gate, a named pipe.
std::string gatePath(SetCommand command)
{
	return hookPath(command) + ".gate";
}

void removeIfAny(const fs::path& path)
{
	std::error_code ignored;
	fs::remove(path, ignored);
}

/// In one step, so that no command includes half a hook.
void placeHook(const Node& node, SetCommand command, const std::string& text)
{
	requireWhole(node, command);
	const fs::path path = node.file(hookPath(command));
	const fs::path fresh = path.string() + ".new";
	try
	{
		writeFile(fresh, text + "\n");
		fs::rename(fresh, path);
	}
	catch (...)
	{
		removeIfAny(fresh);
		throw;
	}
}

} // namespace

void requireWhole(const Node& node, SetCommand command)
{
	node.host();
	if (fs::exists(node.file(hookPath(command))))
	{
		throw LabError("a command of " + nodeText(node.id()) + " is spoilt already");
	}
}

void makeFail(const Node& node, SetCommand command)
{
	placeHook(node, command, "exit 1");
}

void makePrint(const Node& node, SetCommand command)
{
	placeHook(node, command, "echo done");
}

/// The gate comes first: a hook without one would print.
void makeHang(const Node& node, SetCommand command)
{
	requireWhole(node, command);
	const fs::path gate = node.file(gatePath(command));
	if (::mkfifo(gate.c_str(), 0600) != 0)
	{
		throwErrno("cannot make a command of " + nodeText(node.id()) + " hang");
	}
	try
	{
		placeHook(node, command, "cat " + gatePath(command));
	}
	catch (...)
	{
		removeIfAny(gate);
		throw;
	}
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
	const Descriptor opened(::open(gate.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
	removeIfAny(gate);
}

} // namespace velarix::lab
