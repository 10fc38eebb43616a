/// What every fuzz target shares: the two entry points, which call prepare() and run(), the
/// taking apart of the input, how a finding is reported, and the daemon's console.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>

// The entry points that the fuzzer and the replaying program call.
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace fuzz
{

/// Takes the bytes of a run apart, from the front. Behind the end everything is
/// zero or empty, so that any input is a whole one.
class Input
{
public:
	Input(const std::uint8_t* data, std::size_t size);

	unsigned byte();
	/// @return what stands before the next 0xff, which is consumed. Behind 0xfe a byte,
	///         whichever it is, stands for itself.
	std::string field();
	/// @return everything that is left
	std::string rest();
	bool empty() const { return m_rest.empty(); }

private:
	std::string_view m_rest;
};

/// What a target does once, before its first input; nothing unless it defines it.
void prepare();
/// What a target does with an input.
void run(Input& input);

/// Ends the program, with both texts, when they differ.
/// @param what names the invariant
void expectEqual(const char* what, std::string_view is, std::string_view expected);
/// The same for numbers.
template <std::integral Is, std::integral Expected> void expectEqual(const char* what, Is is, Expected expected)
{
	std::cmp_equal(is, expected) ? void() : expectEqual(what, std::to_string(is), std::to_string(expected));
}
/// Ends the program when `holds` is false.
void expect(const char* what, bool holds, std::string_view detail = {});

/// From now on standard output and standard error of the daemon's code end in one
/// text, in the order in which they were written. The fuzzer's own words, which do
/// not go through the streams, stay where they were.
void captureConsole();

/// What the daemon has written; the target empties it.
std::ostringstream& console();

/// A file in memory, which lives as long as the program.
class MemoryFile
{
public:
	explicit MemoryFile(const std::string& bytes = "");
	void write(const std::string& bytes);
	std::string read() const;
	std::string path() const;

private:
	int m_file;
};

} // namespace fuzz
