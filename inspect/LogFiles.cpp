#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>
#include <tuple>

#include "inspect/LogReader.h"
#include "inspect/Pattern.h"

namespace velarix::inspect
{

namespace
{

struct Archive
{
	Instant rotated;
	/// Two archives of one instant: the library numbers the older ones from 0.
	int number = -1;
	std::filesystem::path path;

	bool operator<(const Archive& other) const
	{
		return std::tie(rotated, other.number, path) < std::tie(other.rotated, number, other.path);
	}
};

/// @param suffix what follows the log's name and a dot: "20261121090705123" (UTC), that with ".0" or ".gz"
std::optional<Archive> archiveOf(const std::string& suffix)
{
	static const Pattern kSuffix(R"((\d{14})(\d{3})(?:\.(\d{1,9}))?(?:\.gz)?)");
	constexpr char kStamp[] = "%Y%m%d%H%M%S";
	const Pattern::Groups parts = kSuffix.matched(suffix);
	std::tm date{};
	if (parts.empty() || ::strptime(parts[1].c_str(), kStamp, &date) == nullptr)
	{
		return std::nullopt;
	}
	// Makes another date of one that does not exist.
	const std::time_t seconds = ::timegm(&date);
	std::array<char, 16> stamp{};
	std::strftime(stamp.data(), stamp.size(), kStamp, &date);
	const int year = date.tm_year + 1900;
	if (parts[1] != stamp.data() || year < kFirstYear || year > kLastYear)
	{
		return std::nullopt;
	}
	return Archive{std::chrono::system_clock::from_time_t(seconds) + std::chrono::milliseconds(std::stoi(parts[2])),
	               parts[3].empty() ? -1 : std::stoi(parts[3]),
	               {}};
}

} // namespace

std::vector<LogFile> logFiles(const std::filesystem::path& path, std::vector<LogTrouble>& trouble)
{
	const std::filesystem::path directory = path.has_parent_path() ? path.parent_path() : ".";
	const std::string prefix = path.filename().string() + ".";
	std::vector<Archive> archives;
	std::error_code error;
	std::filesystem::directory_iterator entry(directory, error);
	for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error))
	{
		const std::string name = entry->path().filename().string();
		// The library makes no links; one that is there leads to something else.
		std::error_code ignored;
		if (!name.starts_with(prefix) || entry->is_symlink(ignored))
		{
			continue;
		}
		if (std::optional<Archive> archive = archiveOf(name.substr(prefix.size())))
		{
			archive->path = entry->path();
			archives.push_back(std::move(*archive));
		}
	}
	if (error)
	{
		trouble.push_back({directory, error.value()});
	}
	std::sort(archives.begin(), archives.end());
	std::vector<LogFile> files;
	files.reserve(archives.size() + 1);
	for (const Archive& archive : archives)
	{
		files.push_back({archive.path, archive.rotated});
	}
	files.push_back({path, std::nullopt});
	return files;
}

} // namespace velarix::inspect
