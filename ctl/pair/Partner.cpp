#include "ctl/pair/Partner.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>

#include "inspect/Host.h"
#include "inspect/InputFile.h"
#include "inspect/Pattern.h"
#include "inspect/SettingsFile.h"
#include "inspect/SettingsKeys.h"

namespace velarix::ctl
{

namespace
{

constexpr char kVariable[] = "VELARIX_PARTNER_SSH";

std::string ofService(const Paths& paths)
{
	static const inspect::Pattern line(R"(\s*VELARIX_PARTNER_SSH=["']?([^"'\s#]*).*)");
	const std::filesystem::path file = paths.below("/etc/default/velarix-ha");
	if (host::fileFacts(file).kind == host::FileKind::missing)
	{
		return {};
	}
	std::istringstream lines(readInputFile(file));
	for (std::string text; std::getline(lines, text);)
	{
		if (const inspect::Pattern::Groups found = line.matched(text); !found.empty())
		{
			return found[1];
		}
	}
	return {};
}

std::string targetFrom(const std::string& option, const Paths& paths)
{
	const char* variable = std::getenv(kVariable);
	std::string target = !option.empty() ? option : variable != nullptr ? variable : ofService(paths);
	if (target.empty())
	{
		target = SettingsFile::load(paths.settings).text(key::kPartnerIP).value_or("");
	}
	if (target.empty())
	{
		throw Failure(ExitCode::settings, "nothing tells where the partner is; name it with --ssh");
	}
	if (target.starts_with('-'))
	{
		throw Failure(ExitCode::usage, "\"" + target + "\" is no ssh target");
	}
	return target;
}

/// The shell of the partner gets the words as they are.
std::string quoted(const std::string& word)
{
	std::string text = "'";
	for (const char c : word)
	{
		text += c == '\'' ? "'\\''" : std::string(1, c);
	}
	return text + "'";
}

} // namespace

Partner::Partner(const std::string& target, std::chrono::milliseconds limit, const Paths& paths)
    : m_target(targetFrom(target, paths)), m_limit(limit)
{
}

host::ProgramEnd Partner::run(const std::vector<std::string>& words) const
{
	std::string command = "velarixctl";
	for (const std::string& word : words)
	{
		const bool plain =
		    !word.empty() && word.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-") == word.npos;
		command += " " + (plain ? word : quoted(word));
	}
	const std::string patience = std::to_string(std::max<long>(m_limit.count() / 2000, 1));
	return host::runProgram(
	    {{"ssh", "-o", "BatchMode=yes", "-o", "ConnectTimeout=" + patience, "--", m_target, command}, {}, {}, m_limit});
}

Json Partner::status(const NodeState& own, std::string& why) const
{
	const host::ProgramEnd end = run({"status", "--json"});
	Json report = Json::parse(end.inTime ? end.output : "", nullptr, false);
	if (!report.is_object())
	{
		why = "ssh " + m_target + " " + end.reason();
		return {};
	}
	if (textAt(report, "/node") != own.setting(key::kPartnerIP) ||
	    textAt(report, "/partner/address") != own.setting(key::kThisServerIP))
	{
		why = m_target + " is " + nameOf(report) + ", and not this node's partner";
		return {};
	}
	return report;
}

} // namespace velarix::ctl
