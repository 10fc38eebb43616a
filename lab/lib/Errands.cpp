#include "Errands.h"

#include <cerrno>
#include <csignal>

#include <sys/wait.h>

#include "Command.h"

namespace velarix::lab
{

namespace
{

/// The child waits outside the host for the program inside, which the kernel
/// ends with it.
void endChild(pid_t child)
{
	::kill(child, SIGKILL);
	while (::waitpid(child, nullptr, 0) < 0 && errno == EINTR)
	{
	}
}

} // namespace

Errands::~Errands()
{
	for (const auto& [name, child] : m_errands)
	{
		endChild(child);
	}
}

void Errands::start(const Host& host, const std::string& name, const std::vector<std::string>& argv)
{
	if (underWay(name))
	{
		throw LabError("this is done already: " + name);
	}
	m_errands[name] = spawn({argv, host.inside()});
}

void Errands::end(const std::string& name)
{
	const auto found = m_errands.find(name);
	if (found == m_errands.end())
	{
		throw LabError("this is not being done: " + name);
	}
	endChild(found->second);
	m_errands.erase(found);
}

} // namespace velarix::lab
