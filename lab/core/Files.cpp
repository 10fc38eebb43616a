#include "lab/core/Files.h"

#include <cerrno>
#include <fstream>
#include <iterator>
#include <optional>
#include <system_error>

#include <sys/mman.h>
#include <unistd.h>

namespace velarix::lab
{

namespace
{

std::optional<std::string> readIfOpen(const std::filesystem::path& path)
{
	std::ifstream stream(path, std::ios::binary);
	if (!stream)
	{
		return std::nullopt;
	}
	return std::string(std::istreambuf_iterator<char>(stream), {});
}

[[noreturn]] void fail(const std::string& what, const std::filesystem::path& path)
{
	throw LabError("cannot " + what + " " + path.string() + ": " + std::generic_category().message(errno));
}

} // namespace

std::string contentIfAny(const std::filesystem::path& path)
{
	const std::optional<std::string> content = readIfOpen(path);
	if (!content && errno != ENOENT)
	{
		fail("read", path);
	}
	return content.value_or("");
}

std::string contentOf(const std::filesystem::path& path)
{
	const std::optional<std::string> content = readIfOpen(path);
	if (!content)
	{
		fail("read", path);
	}
	return *content;
}

Descriptor fileInMemory(const std::string& text)
{
	Descriptor made(::memfd_create("lab", MFD_CLOEXEC));
	if (!made || ::pwrite(made.get(), text.data(), text.size(), 0) != static_cast<ssize_t>(text.size()))
	{
		throwErrno("cannot make a file in memory");
	}
	return made;
}

std::string contentOf(const Descriptor& file)
{
	return contentOf(std::filesystem::path("/proc/self/fd/" + std::to_string(file.get())));
}

long timesIn(const std::filesystem::path& path, const std::string& text)
{
	const std::string content = contentIfAny(path);
	long times = 0;
	for (std::size_t at = content.find(text); at != std::string::npos; at = content.find(text, at + text.size()))
	{
		++times;
	}
	return times;
}

void writeFile(const std::filesystem::path& path, const std::string& text)
{
	std::ofstream stream(path, std::ios::trunc | std::ios::binary);
	stream << text;
	stream.close();
	if (!stream)
	{
		fail("write", path);
	}
}

} // namespace velarix::lab
