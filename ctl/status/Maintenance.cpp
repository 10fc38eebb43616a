#include "ctl/status/Maintenance.h"

#include <algorithm>
#include <map>
#include <sstream>

#include "ctl/OutputFile.h"
#include "inspect/ExitCode.h"
#include "inspect/Host.h"
#include "inspect/InputFile.h"
#include "inspect/Number.h"
#include "inspect/Printable.h"
#include "inspect/TimeText.h"
#include "keeper/Settings.h"

namespace velarix::ctl
{

using std::chrono::system_clock;

namespace
{

/// What the keeper calls the process that watches; its parent has the program's name.
constexpr char kWatcher[] = "keeper";

system_clock::time_point timeIn(const std::map<std::string, std::string>& fields, const char* key,
                                const std::filesystem::path& record)
{
	const auto field = fields.find(key);
	const std::optional<long> seconds = field == fields.end() ? std::nullopt : numberIn<long>(field->second);
	if (!seconds)
	{
		throw Failure(ExitCode::settings,
		              record.string() + " tells no time \"" + key + "\"; remove it and begin again");
	}
	return system_clock::time_point(std::chrono::seconds(*seconds));
}

long seconds(system_clock::time_point time)
{
	return static_cast<long>(system_clock::to_time_t(time));
}

} // namespace

std::string Maintenance::words() const
{
	return "since " + localText(since) + ", until " + localText(until) +
	       (reason.empty() ? "" : ": " + printable(reason));
}

std::optional<Maintenance> readMaintenance(const std::filesystem::path& record)
{
	if (host::fileFacts(record).kind == host::FileKind::missing)
	{
		return std::nullopt;
	}
	std::map<std::string, std::string> fields;
	std::istringstream text(readInputFile(record));
	for (std::string line; std::getline(text, line);)
	{
		const std::size_t equals = std::min(line.find('='), line.size());
		fields[line.substr(0, equals)] = line.substr(std::min(equals + 1, line.size()));
	}
	return Maintenance{timeIn(fields, "since", record), timeIn(fields, "until", record), fields["reason"]};
}

void writeMaintenance(const std::filesystem::path& record, const Maintenance& maintenance)
{
	std::ostringstream text;
	text << "since=" << seconds(maintenance.since) << "\nuntil=" << seconds(maintenance.until)
	     << "\nreason=" << printable(maintenance.reason) << '\n';
	replaceFile(record, text.str());
	// For monitoring, whatever the administrator's mask is.
	std::filesystem::permissions(record, std::filesystem::perms(0644));
}

std::vector<host::Process> serviceWatchers()
{
	const std::vector<host::Process> all = host::processes().value_or(std::vector<host::Process>());
	const auto supervises = [&](pid_t parent)
	{
		return std::ranges::any_of(all,
		                           [&](const host::Process& process)
		                           {
			                           return process.pid == parent && process.user == 0 &&
			                                  process.name != keeper::kAddressProgram &&
			                                  process.name != keeper::kReachProgram &&
			                                  process.name.starts_with(keeper::kPrefix);
		                           });
	};
	std::vector<host::Process> watchers;
	std::ranges::copy_if(all, std::back_inserter(watchers),
	                     [&](const host::Process& process)
	                     { return process.name == kWatcher && process.user == 0 && supervises(process.parent); });
	return watchers;
}

} // namespace velarix::ctl
