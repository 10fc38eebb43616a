#include "Target.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>

#include <sys/mman.h>
#include <unistd.h>

namespace
{

void print(const char* label, std::string_view text)
{
	std::fprintf(stderr, "%s (%zu bytes): ", label, text.size());
	for (const char c : text)
	{
		std::fprintf(stderr, c >= 0x20 && c < 0x7f ? "%c" : "\\x%02x", static_cast<unsigned char>(c));
	}
	std::fputc('\n', stderr);
}

} // namespace

// What the address sanitizer is to do: a small quarantine and short stacks make
// the runs several times as fast, and a fuzzer's run is short.
// NOLINTBEGIN(bugprone-reserved-identifier): the sanitizer asks for this name.
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options()
{
	return "quarantine_size_mb=4:thread_local_quarantine_size_kb=64:malloc_context_size=1:"
	       "max_malloc_fill_size=0:detect_stack_use_after_return=0";
}
// NOLINTEND(bugprone-reserved-identifier)

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/)
{
	fuzz::prepare();
	return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
	fuzz::Input input(data, size);
	fuzz::run(input);
	return 0;
}

namespace fuzz
{

[[gnu::weak]] void prepare()
{
}

Input::Input(const std::uint8_t* data, std::size_t size) : m_rest(reinterpret_cast<const char*>(data), size)
{
}

unsigned Input::byte()
{
	if (m_rest.empty())
	{
		return 0;
	}
	const auto value = static_cast<unsigned char>(m_rest.front());
	m_rest.remove_prefix(1);
	return value;
}

std::string Input::field()
{
	std::string text;
	std::size_t at = 0;
	for (; at < m_rest.size() && m_rest[at] != '\xff'; ++at)
	{
		const bool escapes = m_rest[at] == '\xfe' && at + 1 < m_rest.size();
		text += m_rest[escapes ? ++at : at];
	}
	m_rest.remove_prefix(std::min(at + 1, m_rest.size()));
	return text;
}

std::string Input::rest()
{
	std::string text(m_rest);
	m_rest = {};
	return text;
}

void expect(const char* what, bool holds, std::string_view detail)
{
	if (!holds)
	{
		std::fprintf(stderr, "FINDING: %s\n", what);
		print("it is", detail);
		std::abort();
	}
}

void expectEqual(const char* what, std::string_view is, std::string_view expected)
{
	if (is != expected)
	{
		print("expected", expected);
		expect(what, false, is);
	}
}

void captureConsole()
{
	std::cout.rdbuf(console().rdbuf());
	std::cerr.rdbuf(console().rdbuf());
}

std::ostringstream& console()
{
	// Never deleted: the streams are flushed when the program ends.
	static auto* const pText = new std::ostringstream;
	return *pText;
}

MemoryFile::MemoryFile(const std::string& bytes) : m_file(::memfd_create("fuzz", MFD_CLOEXEC))
{
	write(bytes);
}

void MemoryFile::write(const std::string& bytes)
{
	if (::ftruncate(m_file, 0) != 0 ||
	    ::pwrite(m_file, bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()))
	{
		throw std::runtime_error("no file in memory");
	}
}

std::string MemoryFile::read() const
{
	std::ifstream stream(path(), std::ios::binary);
	return std::string(std::istreambuf_iterator<char>(stream), {});
}

std::string MemoryFile::path() const
{
	return "/proc/self/fd/" + std::to_string(m_file);
}

} // namespace fuzz
