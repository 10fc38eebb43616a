#include "Errands.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <optional>

#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Command.h"

namespace velarix::lab
{

namespace
{

constexpr off_t lastWordsSize = 500;

/// The child waits outside the host for the program inside, which the kernel
/// ends with it.
void endChild(pid_t child)
{
	::kill(child, SIGKILL);
	while (::waitpid(child, nullptr, 0) < 0 && errno == EINTR)
	{
	}
}

std::string lastWordsOf(int words)
{
	struct stat found
	{
	};
	::fstat(words, &found);
	std::string text(static_cast<std::size_t>(std::min(found.st_size, lastWordsSize)), ' ');
	const off_t from = found.st_size - static_cast<off_t>(text.size());
	const ssize_t count = ::pread(words, text.data(), text.size(), from);
	text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
	return text;
}

} // namespace

Errands::~Errands()
{
	for (const auto& [name, errand] : m_errands)
	{
		endChild(errand.child);
	}
}

void Errands::start(const Host& host, const std::string& name, const std::vector<std::string>& argv)
{
	if (underWay(name))
	{
		throw LabError("this is done already: " + name);
	}
	Errand errand;
	errand.words.reset(::memfd_create("lab-errand", MFD_CLOEXEC));
	if (!errand.words)
	{
		throwErrno("cannot keep what a program says");
	}
	SpawnPlan plan;
	plan.argv = argv;
	plan.inside = host.inside();
	plan.output = errand.words.get();
	plan.error = errand.words.get();
	errand.child = spawn(plan);
	m_errands.emplace(name, std::move(errand));
}

void Errands::end(const std::string& name)
{
	const auto found = m_errands.find(name);
	if (found == m_errands.end())
	{
		throw LabError("this is not being done: " + name);
	}
	const Errand errand = std::move(found->second);
	m_errands.erase(found);
	const std::optional<int> status = waitForChild(errand.child, Millis(0));
	if (status)
	{
		throw LabError("this had ended by itself with status " + std::to_string(*status) + ": " + name + ": " +
		               lastWordsOf(errand.words.get()));
	}
	endChild(errand.child);
}

} // namespace velarix::lab
