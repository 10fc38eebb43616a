#include "inspect/InputFile.h"

#include <cerrno>
#include <system_error>

#include <unistd.h>

#include "inspect/Descriptor.h"
#include "inspect/ExitCode.h"
#include "inspect/LineStream.h"

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

std::string readInputFile(const std::filesystem::path& path)
{
	const Descriptor file = openRegular(path);
	if (!file)
	{
		fail(path, errno);
	}
	std::string text(kLargestInput + 1, '\0');
	std::size_t size = 0;
	while (size < text.size())
	{
		const ssize_t count = ::read(file.get(), text.data() + size, text.size() - size);
		if (count < 0 && errno == EINTR)
		{
			continue;
		}
		if (count < 0)
		{
			fail(path, errno);
		}
		if (count == 0)
		{
			break;
		}
		size += static_cast<std::size_t>(count);
	}
	if (size > kLargestInput)
	{
		fail(path, EFBIG);
	}
	text.resize(size);
	return text;
}

} // namespace velarix::inspect
