// It opens each status file as a stream of the C library and cuts each configured
// path into all of its parts, for every process.

#include "EarlierCheck.h"

#include <array>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include <dirent.h>

#include <Poco/StringTokenizer.h>

#include "Utilities.h"
#include "Utill.h"

namespace
{

constexpr std::size_t kStatusLineSize = 128;

struct CloseDirectory
{
	void operator()(DIR* pDirectory) const { ::closedir(pDirectory); }
};

struct CloseFile
{
	void operator()(std::FILE* pFile) const { std::fclose(pFile); }
};

bool isProcessDirectory(const dirent& entry)
{
	return entry.d_type == DT_DIR && entry.d_name[0] != '.' && static_cast<signed char>(entry.d_name[0]) <= '9';
}

bool readStatusLine(const char* directory, std::string& line)
{
	std::array<char, kStatusLineSize + sizeof(dirent::d_name)> path{};
	std::snprintf(path.data(), path.size(), "/proc/%s/status", directory);
	const std::unique_ptr<std::FILE, CloseFile> file(std::fopen(path.data(), "rte"));
	std::array<char, kStatusLineSize> buffer{};
	if (file == nullptr || std::fgets(buffer.data(), static_cast<int>(buffer.size()), file.get()) == nullptr)
	{
		return false;
	}
	line = buffer.data();
	return true;
}

std::string nameOf(const std::string& path)
{
	const Poco::StringTokenizer tokens(path, "/");
	return tokens[tokens.count() - 1];
}

std::size_t countNames(std::string& line, std::vector<std::string>& paths)
{
	std::size_t count = 0;
	for (const std::string& path : paths)
	{
		std::string name = nameOf(path);
		if (stringFinder(line, name))
		{
			++count;
		}
	}
	return count;
}

} // namespace

bool earlierCheck()
{
	std::vector<std::string> paths = Utill::getProcessList();
	const std::unique_ptr<DIR, CloseDirectory> directory(::opendir("/proc"));
	std::size_t count = 0;
	std::string line;
	while (const dirent* entry = ::readdir(directory.get()))
	{
		if (isProcessDirectory(*entry) && readStatusLine(entry->d_name, line))
		{
			count += countNames(line, paths);
		}
	}
	return count >= paths.size();
}
