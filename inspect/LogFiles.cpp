#include <algorithm>
#include <cerrno>
#include <charconv>
#include <string_view>
#include <tuple>

#include "inspect/LogReader.h"
#include "inspect/Number.h"

namespace velarix::inspect
{

namespace
{

constexpr std::string_view kPacked = ".gz";
constexpr std::size_t kStampSize = sizeof("20261121090705123") - 1;

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

template <typename Number> bool readDigits(std::string_view text, Number& value)
{
	const bool digits = !text.empty() && std::all_of(text.begin(), text.end(), isDigit);
	return digits && std::from_chars(text.data(), text.data() + text.size(), value).ec == std::errc();
}

/// @param stamp "20261121090705123", UTC
std::optional<Instant> instantOf(std::string_view stamp)
{
	int year = 0;
	int hour = 0;
	int minute = 0;
	int second = 0;
	int thousandths = 0;
	unsigned month = 0;
	unsigned day = 0;
	if (stamp.size() != kStampSize || !readDigits(stamp.substr(0, 4), year) || !readDigits(stamp.substr(4, 2), month) ||
	    !readDigits(stamp.substr(6, 2), day) || !readDigits(stamp.substr(8, 2), hour) ||
	    !readDigits(stamp.substr(10, 2), minute) || !readDigits(stamp.substr(12, 2), second) ||
	    !readDigits(stamp.substr(14), thousandths))
	{
		return std::nullopt;
	}
	const std::chrono::year_month_day date{std::chrono::year(year), std::chrono::month(month), std::chrono::day(day)};
	if (!date.ok() || year < kFirstYear || year > kLastYear || hour > 23 || minute > 59 || second > 60)
	{
		return std::nullopt;
	}
	return std::chrono::sys_days(date) + std::chrono::hours(hour) + std::chrono::minutes(minute) +
	       std::chrono::seconds(second) + std::chrono::milliseconds(thousandths);
}

/// @param suffix what follows the log's name and a dot: "STAMP", "STAMP.0", "STAMP.gz"
std::optional<Archive> archiveOf(std::string_view suffix)
{
	if (suffix.ends_with(kPacked))
	{
		suffix.remove_suffix(kPacked.size());
	}
	const std::optional<Instant> rotated = instantOf(suffix.substr(0, kStampSize));
	if (!rotated)
	{
		return std::nullopt;
	}
	Archive archive{*rotated, -1, {}};
	suffix.remove_prefix(kStampSize);
	if (!suffix.empty() && (suffix.front() != '.' || !readDigits(suffix.substr(1), archive.number)))
	{
		return std::nullopt;
	}
	return archive;
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
		if (std::optional<Archive> archive = archiveOf(std::string_view(name).substr(prefix.size())))
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
