#include "ctl/OutputFile.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "inspect/ExitCode.h"

namespace velarix::ctl
{

using namespace inspect;

namespace
{

/// A file under a name of its own, gone again unless it was renamed.
class Draft
{
public:
	explicit Draft(const std::filesystem::path& target)
	    : m_target(target), m_name(target.string() + ".XXXXXX"), m_descriptor(::mkostemp(m_name.data(), O_CLOEXEC))
	{
		demand(m_descriptor >= 0);
	}

	~Draft()
	{
		if (m_descriptor >= 0)
		{
			::close(m_descriptor);
			::unlink(m_name.c_str());
		}
	}
	Draft(const Draft&) = delete;
	Draft& operator=(const Draft&) = delete;

	/// For all to read, as a file made in the usual way.
	void openToReaders() const
	{
		const mode_t mask = ::umask(0);
		::umask(mask);
		demand(::fchmod(m_descriptor, 0666U & ~mask) == 0);
	}

	/// The draft is made for its owner alone, and stays so without a former file.
	void takeRightsOfTarget() const
	{
		struct stat former
		{
		};
		if (::stat(m_target.c_str(), &former) == 0)
		{
			// The owner first: changing it clears bits of the mode.
			demand(::fchown(m_descriptor, former.st_uid, former.st_gid) == 0);
			demand(::fchmod(m_descriptor, former.st_mode & 07777U) == 0);
		}
	}

	void write(std::string_view text)
	{
		while (!text.empty())
		{
			const ssize_t written = ::write(m_descriptor, text.data(), text.size());
			demand(written > 0 || errno == EINTR);
			text.remove_prefix(written > 0 ? static_cast<std::size_t>(written) : 0);
		}
		demand(::fsync(m_descriptor) == 0);
	}

	void becomeTarget()
	{
		demand(std::rename(m_name.c_str(), m_target.c_str()) == 0);
		::close(m_descriptor);
		m_descriptor = -1;
	}

private:
	std::filesystem::path m_target;
	std::string m_name;
	int m_descriptor;

	void demand(bool done) const
	{
		if (!done)
		{
			const int error = errno;
			throw Failure(error == EACCES || error == EPERM ? ExitCode::noPermission : ExitCode::cannotWrite,
			              "cannot write " + m_target.string() + ": " + std::generic_category().message(error));
		}
	}
};

} // namespace

void replaceFile(const std::filesystem::path& path, const std::string& text)
{
	Draft draft(path);
	draft.openToReaders();
	draft.write(text);
	draft.becomeTarget();
}

void replaceOwnFile(const std::filesystem::path& path, const std::string& text)
{
	Draft draft(path);
	draft.takeRightsOfTarget();
	draft.write(text);
	draft.becomeTarget();
}

} // namespace velarix::ctl
