#include "ctl/check/LogBeginning.h"

#include <fstream>
#include <string>
#include <string_view>

#include <Poco/DateTimeFormat.h>
#include <Poco/DateTimeFormatter.h>
#include <Poco/DateTimeParser.h>
#include <Poco/Timespan.h>

#include "inspect/SettingsKeys.h"

namespace velarix::ctl::checks
{

void logBeginning(Findings& findings, const std::filesystem::path& log)
{
	constexpr std::string_view kRemark = "# Log file created/rotated ";
	// Clocks that agree differ by less.
	const Poco::Timespan kTolerated(60, 0);
	std::string line(256, '\0');
	std::ifstream file(log, std::ios::binary);
	file.read(line.data(), static_cast<std::streamsize>(line.size()));
	line.resize(static_cast<std::size_t>(file.gcount()));
	line.resize(std::min(line.find('\n'), line.size()));
	Poco::DateTime begun;
	int zone = 0;
	if (!line.starts_with(kRemark) ||
	    !Poco::DateTimeParser::tryParse(Poco::DateTimeFormat::RFC1036_FORMAT, line.substr(kRemark.size()), begun, zone))
	{
		return;
	}
	begun.makeUTC(zone);
	if (begun.timestamp() > Poco::Timestamp() + kTolerated)
	{
		findings.warning(
		    key::kLogPath,
		    {"log-from-the-future",
		     "the log " + log.string() + " was begun at " +
		         Poco::DateTimeFormatter::format(begun, "%Y-%m-%d %H:%M:%S") +
		         " UTC, which is still to come: the clock was ahead",
		     "until a day after that time the log is not renamed, and no old one is deleted: the disk fills",
		     "with the agent stopped, move the file aside: mv " + log.string() + " " + log.string() + ".old"});
	}
}

} // namespace velarix::ctl::checks
