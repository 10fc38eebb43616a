#include "QuorinINI.h"

#include <cstdio>
#include <cstring>
#include <iostream>
#include <memory>

#include <Poco/Exception.h>
#include <Poco/FileStream.h>

#include "VelarixLog.h"
#include "velarix/fatal.h"
#include "velarix/velarix.h"

namespace
{

constexpr char kSource[] = "QuorinINI";
constexpr std::size_t kLineSize = 200;
constexpr std::size_t kKeySize = 100;

struct CloseFile
{
	void operator()(std::FILE* pFile) const { std::fclose(pFile); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

/// The two names of a key: every '.' ends the section and is itself dropped.
struct KeyName
{
	std::string section;
	std::string name;
};

KeyName splitKey(const std::string& key)
{
	KeyName result;
	bool afterDot = false;
	for (const char c : key)
	{
		if (c == '.')
		{
			afterDot = true;
		}
		else
		{
			(afterDot ? result.name : result.section) += c;
		}
	}
	return result;
}

/// Reads up to and with the next line feed, at most 199 bytes, so that a longer
/// line arrives in pieces. Unlike a C string a piece keeps NUL bytes.
/// @return false at the end of the file
bool readPiece(std::FILE* pFile, std::string& piece)
{
	piece.clear();
	while (piece.size() < kLineSize - 1)
	{
		const int c = std::getc(pFile);
		if (c == EOF)
		{
			break;
		}
		piece += static_cast<char>(c);
		if (c == '\n')
		{
			break;
		}
	}
	return !piece.empty();
}

/// Judges the lines of the file one after the other.
class LineEditor
{
public:
	LineEditor(const KeyName& key, const std::string& value) : m_key(key), m_value(value) {}

	/// @return the line as it is to be written
	std::string edit(const std::string& line)
	{
		// A line is at most 199 bytes and a NUL ends it, so the work buffer
		// always keeps a terminator. It is cleared once a line: on a header
		// line the second copy overwrites only the front of the first.
		std::array<char, kLineSize> work{};
		if (line.front() == '[')
		{
			copyUntil(line, 1, "]", work);
			m_inSection = m_key.section == work.data();
		}
		if (m_inSection)
		{
			copyUntil(line, 0, " =", work);
			if (m_key.name == work.data())
			{
				return m_key.name + " = " + m_value + "\n";
			}
		}
		return line;
	}

private:
	static void copyUntil(const std::string& line, std::size_t from, const char* stops,
	                      std::array<char, kLineSize>& work)
	{
		for (std::size_t i = from; i < line.size() && line[i] != '\0' && std::strchr(stops, line[i]) == nullptr; ++i)
		{
			work[i - from] = line[i];
		}
	}

	const KeyName& m_key;
	const std::string& m_value;
	bool m_inSection = false;
};

File openFile(const char* path, const char* how)
{
	File file(std::fopen(path, how));
	if (file == nullptr)
	{
		std::cout << "ini File fopen fail." << std::endl;
	}
	return file;
}

} // namespace

bool initialization::loadFile(const std::string& path)
{
	try
	{
		if (path.size() >= m_filePath.size())
		{
			throw Poco::PathSyntaxException("path longer than 99 characters", path);
		}
		m_filePath.fill('\0');
		path.copy(m_filePath.data(), path.size());
		// The library's parser waits for the end of the file alone. What can be opened
		// and not read to its end, a directory or a disk that fails, has to throw.
		Poco::FileInputStream file(path);
		file.exceptions(std::ios::badbit);
		m_pFile = new Poco::Util::IniFileConfiguration(file);
	}
	catch (const Poco::Exception& exc)
	{
		velarixLog->error(kSource, 29, "%s", exc.displayText().c_str());
		velarix::fatal("(1 == 0) && \"ini File fopen fail.\"", kSource, 30,
		               "bool initialization::loadFile(const std::string&)");
	}
	return true;
}

std::string initialization::getString(const std::string& key)
{
	return m_pFile->getString(key);
}

int initialization::getInt(const std::string& key)
{
	return m_pFile->getInt(key);
}

bool initialization::getBool(const std::string& key)
{
	return m_pFile->getBool(key);
}

double initialization::getDouble(const std::string& key)
{
	return m_pFile->getDouble(key);
}

unsigned initialization::getUInt(const std::string& key)
{
	return m_pFile->getUInt(key);
}

bool initialization::changeINI(const std::string& key, const std::string& value)
{
	if (key.size() >= kKeySize)
	{
		return false;
	}
	// On both failures below the lock stays taken: after a file that could not
	// be opened no other thread may rewrite it. Only this thread, the lock being
	// recursive, can try again. Pinned by ChangeIniFailures.
	g_runTimeRecodeMutex.lock();
	File input = openFile(m_filePath.data(), "re");
	if (input == nullptr)
	{
		return false;
	}
	const KeyName keyName = splitKey(key);
	LineEditor editor(keyName, value);
	std::string output;
	for (std::string line; readPiece(input.get(), line);)
	{
		output += editor.edit(line);
	}
	input.reset();
	File rewritten = openFile(m_filePath.data(), "we");
	if (rewritten == nullptr)
	{
		return false;
	}
	std::fwrite(output.data(), 1, output.size(), rewritten.get());
	rewritten.reset();
	g_runTimeRecodeMutex.unlock();
	return true;
}
