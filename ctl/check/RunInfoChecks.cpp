#include "ctl/check/Checks.h"

#include <sstream>
#include <string>

#include "inspect/ExitCode.h"
#include "inspect/Host.h"
#include "inspect/InputFile.h"
#include "inspect/Names.h"

namespace velarix::ctl::checks
{

using namespace inspect;

namespace
{

/// Whether the agent's own editor finds a key, which looks at the text more
/// narrowly than the library's parser: the header's name and the key begin their
/// lines, letter for letter, and a blank or "=" follows the key.
bool isEdited(const std::string& text, const std::string& key)
{
	const std::string name = key.substr(key.find('.') + 1);
	std::istringstream lines(text);
	bool inSection = false;
	for (std::string line; std::getline(lines, line);)
	{
		if (line.starts_with('['))
		{
			inSection = line.substr(1, line.find(']') - 1) == "TRACE";
		}
		else if (inSection && line.starts_with(name) && line.find_first_of(" =") == name.size())
		{
			return true;
		}
	}
	return false;
}

class RunInfoCheck
{
public:
	RunInfoCheck(Findings& findings, const SettingsFile& record, const std::string& text)
	    : m_findings(findings), m_record(record), m_text(text)
	{
	}

	void run()
	{
		key(kLastRunTime, Severity::error, "the agent ends at its first heartbeat");
		key(kMasterLastRunTime, Severity::warning, "no effect as long as the agent does not use the key");
		key(kSlaveLastRunTime, Severity::warning, "no effect as long as the agent does not use the key");
		value();
	}

private:
	void add(Severity severity, int line, Words words)
	{
		m_findings.add(severity, m_record.path(), line, std::move(words));
	}

	void key(const std::string& name, Severity severity, const char* effect)
	{
		const SettingLine* line = m_record.find(name);
		const std::string remedy = "write the line \"" + name.substr(6) + " = \" below [TRACE]";
		if (line == nullptr)
		{
			add(severity, m_record.lineOfSection("TRACE"),
			    {"run-info-key-missing", name + " is missing in the run-info record", effect, remedy});
		}
		else if (!isEdited(m_text, name))
		{
			add(Severity::warning, line->line,
			    {"run-info-key-not-edited", "the agent does not find " + name + " when it is to write the time there",
			     "the time of the last start is never renewed", remedy + ", from the line's beginning"});
		}
	}

	void value()
	{
		const std::string time = m_record.text(kLastRunTime).value_or("");
		const int line = m_record.lineOf(kLastRunTime);
		if (time.find('/') != std::string::npos)
		{
			add(Severity::error, line,
			    {"run-info-time-with-slash", std::string(kLastRunTime) + " is \"" + time + "\"",
			     "until the next start each heartbeat carries a field too many, and the partner takes a part of this "
			     "for "
			     "the ask to take over",
			     "empty the value"});
		}
		else if (!time.empty() && (time.size() != 14 || time.find_first_not_of("0123456789") != std::string::npos))
		{
			add(Severity::warning, line,
			    {"run-info-time", std::string(kLastRunTime) + " is \"" + time + "\", not 14 digits",
			     "the heartbeats carry it until the next start", "empty the value"});
		}
	}

	Findings& m_findings;
	const SettingsFile& m_record;
	const std::string& m_text;
};

} // namespace

void runInfo(Findings& findings, const Paths& paths)
{
	const host::FileKind kind = host::fileFacts(paths.runInfo).kind;
	if (kind == host::FileKind::missing || kind == host::FileKind::directory)
	{
		const bool missing = kind == host::FileKind::missing;
		findings.add(Severity::error, paths.runInfo, 0,
		             {missing ? "run-info-missing" : "run-info-is-a-directory",
		              missing ? "there is no run-info record" : "the run-info record is a directory",
		              "the agent edits the record and never makes it: it ends at its start",
		              "write the record with its section and three empty keys; \"velarixctl init\" makes it"});
		return;
	}
	try
	{
		const std::string text = readInputFile(paths.runInfo);
		const SettingsFile record = SettingsFile::parse(paths.runInfo, text);
		RunInfoCheck(findings, record, text).run();
	}
	catch (const Failure& failure)
	{
		findings.notChecked(paths.runInfo.string(), failure.what());
	}
}

} // namespace velarix::ctl::checks
