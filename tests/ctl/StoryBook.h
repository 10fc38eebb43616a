/// Tests written as text: what happens, line by line, and what is expected of it.
///
///   == NAME     a story from its beginning
///   def NAME    a shorthand; $ is what stands behind its name
///   N x LINE | LINE
///   # ...       a comment
///
/// "\n", "\r", "\e" and "\xff" stand for the bytes. What the other lines mean is the test's.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

struct Story
{
	std::string name;
	std::vector<std::string> lines;
};

class StoryBook
{
public:
	explicit StoryBook(const std::string& path);

	const std::vector<Story>& stories() const { return m_stories; }

	/// Resolves shorthands and repetitions.
	void expand(const std::string& line, const std::function<void(const std::string&)>& take) const;

private:
	std::vector<Story> m_stories;
	std::map<std::string, std::vector<std::string>> m_shorthands;
};

/// @return what stands before the first blank, which is taken away with it
std::string cutWord(std::string& text);

/// @return the texts between the separators
std::vector<std::string> split(std::string text, const std::string& separator);
