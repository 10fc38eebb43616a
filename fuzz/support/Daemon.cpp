#include "Daemon.h"

#include <iostream>
#include <stdexcept>
#include <streambuf>

#include <sys/mman.h>
#include <unistd.h>

#include "Configuraion.h"

namespace
{

std::string& text()
{
	static auto* const pText = new std::string;
	return *pText;
}

class Collector : public std::streambuf
{
protected:
	int_type overflow(int_type c) override
	{
		text().push_back(traits_type::to_char_type(c));
		return c;
	}

	std::streamsize xsputn(const char* bytes, std::streamsize size) override
	{
		text().append(bytes, static_cast<std::size_t>(size));
		return size;
	}
};

} // namespace

namespace fuzz
{

void captureConsole()
{
	// Never deleted: the streams are flushed when the program ends.
	static auto* const pCollector = new Collector;
	std::cout.rdbuf(pCollector);
	std::cerr.rdbuf(pCollector);
}

std::string& console()
{
	return text();
}

std::string memoryFile(const std::string& bytes)
{
	const int file = ::memfd_create("fuzz", MFD_CLOEXEC);
	if (file < 0 || ::write(file, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()))
	{
		throw std::runtime_error("no file in memory");
	}
	return "/proc/self/fd/" + std::to_string(file);
}

void useSettings(const std::string& bytes)
{
	Configuraion::pConf = new Configuraion(memoryFile(bytes));
}

} // namespace fuzz
