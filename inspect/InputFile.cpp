#include "inspect/InputFile.h"

#include <cerrno>
#include <fstream>
#include <sstream>
#include <system_error>

#include "inspect/ExitCode.h"

namespace velarix::inspect
{

namespace
{

[[noreturn]] void fail(const std::filesystem::path& path, int error)
{
	const ExitCode code = error == EACCES ? ExitCode::noPermission : ExitCode::noInput;
	throw Failure(code, "cannot read " + path.string() + ": " + std::generic_category().message(error));
}

} // namespace

std::string readInputFile(const std::filesystem::path& path)
{
	errno = 0;
	std::ifstream stream(path, std::ios::binary);
	if (!stream)
	{
		fail(path, errno);
	}
	std::ostringstream text;
	text << stream.rdbuf();
	std::error_code ignored;
	if (std::filesystem::is_directory(path, ignored))
	{
		fail(path, EISDIR);
	}
	return text.str();
}

} // namespace velarix::inspect
