/// The editor of the run-info record.
///
/// Input: the key, 0xff, the value, 0xff, the bytes of the file. The rewritten bytes must be
/// those of a reference model with whole texts instead of buffers.
#include <algorithm>
#include <cstdint>

#include "QuorinINI.h"
#include "VelarixLog.h"

#include "Target.h"

namespace
{

fuzz::MemoryFile* g_pFile = nullptr;
initialization* g_pRecord = nullptr;

constexpr std::size_t kLongestPiece = 199;
constexpr std::size_t kLongestKey = 99;

/// @return the length of the piece that begins at `begin`: a line with its line
///         feed, or the first 199 bytes of a longer one
std::size_t pieceAt(const std::string& file, std::size_t begin)
{
	const std::size_t feed = file.find('\n', begin);
	const std::size_t end = feed == std::string::npos ? file.size() : feed + 1;
	return std::min(end - begin, kLongestPiece);
}

/// @return the beginning of the text up to the first of the stops
std::string until(const std::string& text, const char* stops)
{
	return text.substr(0, text.find_first_of(stops));
}

/// @return `front` written over the beginning of `behind`
std::string over(const std::string& front, const std::string& behind)
{
	return front.size() < behind.size() ? front + behind.substr(front.size()) : front;
}

/// @param key "SECTION.NAME"
/// @return the file with every line of that key replaced; the file itself when the
///         key has a hundred characters or more
std::string iniAfterChange(const std::string& file, const std::string& key, const std::string& value)
{
	if (key.size() > kLongestKey)
	{
		return file;
	}
	const std::string section = until(key, ".");
	std::string name = key.substr(section.size());
	name.erase(std::remove(name.begin(), name.end(), '.'), name.end());

	std::string result;
	bool inside = false;
	for (std::size_t at = 0; at < file.size();)
	{
		const std::string piece = file.substr(at, pieceAt(file, at));
		at += piece.size();
		// Nothing behind a zero byte is compared.
		const std::string line = piece.substr(0, piece.find('\0'));
		std::string header;
		if (!line.empty() && line.front() == '[')
		{
			header = until(line.substr(1), "]");
			inside = header == section;
		}
		const bool match = inside && over(until(line, " ="), header) == name;
		result += match ? name + " = " + value + "\n" : piece;
	}
	return result;
}

} // namespace

void fuzz::prepare()
{
	fuzz::captureConsole();
	velarixLog = new VelarixLog;
	g_pFile = new MemoryFile("[TRACE]\n");
	g_pRecord = new initialization;
	g_pRecord->loadFile(g_pFile->path());
}

void fuzz::run(Input& input)
{
	const std::string key = input.field();
	const std::string value = input.field();
	const std::string before = input.rest();
	g_pFile->write(before);
	fuzz::console().str("");
	fuzz::expect("the editor's answer", g_pRecord->changeINI(key, value) == (key.size() <= kLongestKey), key);
	fuzz::expectEqual("what the editor says", fuzz::console().str(), "");
	fuzz::expectEqual("the rewritten file", g_pFile->read(), iniAfterChange(before, key, value));
}
