/// Tests written as text: what happens, line by line, and what is expected of it.
///
///   == NAME     a story from its beginning
///   begin LINE  what each story below begins with
///   def NAME    a shorthand; $ is what stands behind its name, or $1 and $2 before and behind " => "
///   N x LINE | LINE
///   # ...       a comment
///
/// "\n", "\r", "\e", "\\" and "\x1f" stand for the bytes. What the other lines mean is the test's.
#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

struct Story
{
	std::string name;
	std::vector<std::string> lines;
};

/// For a failed test.
void PrintTo(const Story& story, std::ostream* out);

class StoryBook
{
public:
	/// @param path a file, or a folder of *.txt
	/// @throws std::runtime_error it cannot be read, or has a shorthand twice
	explicit StoryBook(const std::filesystem::path& path);

	const std::vector<Story>& stories() const { return m_stories; }

	/// Resolves shorthands and repetitions.
	void expand(const std::string& line, const std::function<void(const std::string&)>& take) const;

private:
	std::vector<Story> m_stories;
	std::map<std::string, std::vector<std::string>> m_shorthands;

	void read(const std::filesystem::path& file);
};

/// @return what stands before the first blank, which is taken away with it
std::string cutWord(std::string& text);

/// @return the texts between the separators
std::vector<std::string> split(std::string text, const std::string& separator);
