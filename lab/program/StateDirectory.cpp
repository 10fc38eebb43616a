#include "lab/program/StateDirectory.h"

#include <algorithm>
#include <cctype>

#include <fcntl.h>
#include <sys/file.h>

namespace velarix::lab::program
{

namespace fs = std::filesystem;

StateDirectory::StateDirectory(const fs::path& base, const std::string& name) : m_name(name), m_path(base / name)
{
	const bool letters =
	    std::all_of(name.begin(), name.end(),
	                [](char letter) {
		                return std::isalnum(static_cast<unsigned char>(letter)) != 0 || letter == '-' || letter == '_';
	                });
	if (name.empty() || name.size() > 32 || !letters)
	{
		throw LabError("a lab's name is 1 to 32 letters, digits, \"-\" and \"_\": \"" + name + "\" is not");
	}
}

bool StateDirectory::exists() const
{
	return fs::exists(m_path);
}

Descriptor StateDirectory::openLock(int flags) const
{
	return Descriptor(::open((m_path / "lock").c_str(), flags | O_CLOEXEC, 0600));
}

bool StateDirectory::inUse() const
{
	const Descriptor file = openLock(O_RDONLY);
	return file && ::flock(file.get(), LOCK_EX | LOCK_NB) != 0;
}

void StateDirectory::create() const
{
	std::error_code failure;
	fs::create_directories(m_path, failure);
	if (failure)
	{
		throw LabError("cannot make " + m_path.string() + ": " + failure.message());
	}
	fs::permissions(m_path, fs::perms::owner_all, failure);
}

void StateDirectory::lock()
{
	create();
	m_lock = openLock(O_RDWR | O_CREAT);
	if (!m_lock || ::flock(m_lock.get(), LOCK_EX | LOCK_NB) != 0)
	{
		throw LabError("the lab \"" + m_name + "\" is up already");
	}
}

void StateDirectory::remove() const
{
	std::error_code ignored;
	fs::remove_all(m_path, ignored);
	fs::remove(m_path.parent_path(), ignored); // fails while other pairs are there
}

} // namespace velarix::lab::program
