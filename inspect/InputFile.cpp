#include "inspect/InputFile.h"

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "inspect/ExitCode.h"

namespace velarix::inspect
{

namespace
{

[[noreturn]] void fail(const std::filesystem::path& path, int error)
{
	const ExitCode code = error == EACCES ? ExitCode::noPermission : ExitCode::noInput;
	// The system's words for the two would not say what is wrong with the file.
	const std::string reason = error == EINVAL  ? "it is not a regular file"
	                           : error == EFBIG ? "it is larger than 1 MB"
	                                            : std::generic_category().message(error);
	throw Failure(code, "cannot read " + path.string() + ": " + reason);
}

} // namespace

Descriptor openRegular(const std::filesystem::path& path)
{
	// Without O_NONBLOCK a pipe in the file's place would be waited for.
	Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
	struct stat found
	{
	};
	if (file && ::fstat(file.get(), &found) == 0 && !S_ISREG(found.st_mode))
	{
		file.close();
		errno = S_ISDIR(found.st_mode) ? EISDIR : EINVAL;
	}
	return file;
}

std::string readInputFile(const std::filesystem::path& path)
{
	const Descriptor file = openRegular(path);
	if (!file)
	{
		fail(path, errno);
	}
	std::string text(kLargestInput + 1, '\0');
	std::size_t size = 0;
	ssize_t count = 0;
	while ((count = ::read(file.get(), text.data() + size, text.size() - size)) > 0)
	{
		size += static_cast<std::size_t>(count);
	}
	if (count < 0 || size > kLargestInput)
	{
		fail(path, count < 0 ? errno : EFBIG);
	}
	text.resize(size);
	return text;
}

} // namespace velarix::inspect
