/// What the keeper has reported (keeper/Runtime.h), beside what the agent's log tells.
#pragma once

#include <filesystem>
#include <memory>

#include "ctl/Program.h"
#include "ctl/history/Events.h"
#include "inspect/Catalogue.h"
#include "inspect/LineStream.h"
#include "inspect/LogReader.h"

namespace velarix::ctl
{

/// What an administrator does to a node with velarixctl. The agent's log tells of its effects
/// alone, so it is put beside the keeper's events (keeper.log).
/// In the place of a program of the keeper's.
inline constexpr std::string_view kOperator = "velarixctl";
/// The words of its lines.
inline constexpr std::string_view kSwitchover = "switchover";
inline constexpr std::string_view kMaintenanceOn = "maintenance-on";
inline constexpr std::string_view kMaintenanceOff = "maintenance-off";

/// Adds a line, and who called. What cannot be written keeps nothing from being done: it is complained of.
void recordAct(const Context& context, std::string_view word, const std::string& detail);

/// What the end of the log tells of switchovers; a log that cannot be read tells of none.
LastMove movesIn(const std::filesystem::path& keeperLog);

struct KeeperEvent
{
	Instant time;
	long process = 0;
	/// "ha-web"; kOperator for what an administrator did
	std::string program;
	/// The keeper's word: "raised".
	std::string word;
	std::string detail;
};

/// @return whether it is the begin of a planned move
bool isMove(const KeeperEvent& event);

/// @return nothing for a line that neither the keeper nor velarixctl writes
std::optional<KeeperEvent> parseKeeperLine(const std::string& line);

/// The file and what logrotate has made of it, oldest line first. Asked again, what was
/// written meanwhile.
class KeeperLog
{
public:
	explicit KeeperLog(std::filesystem::path path);

	/// @return the next event, unless it is later than `until`
	std::optional<KeeperEvent> next(Instant until);

	/// What could not be read.
	const std::vector<LogTrouble>& trouble() const { return m_trouble; }

private:
	std::filesystem::path m_path;
	/// Still to be read, oldest first; the file that is being written comes last and stays.
	std::vector<std::filesystem::path> m_files;
	std::unique_ptr<LineStream> m_lines;
	std::optional<KeeperEvent> m_pending;
	std::vector<LogTrouble> m_trouble;
	/// errno of the file that is being written, as long as it cannot be opened.
	int m_lastError = 0;

	bool nextLine(RawLine& line);
	bool open();
	bool isOver() const;
};

/// What each word of the keeper means and what to do, as rows of the catalogue.
/// @param message a line of its log or of the journal, or a word alone
std::vector<const CatalogueRow*> explainKeeper(std::string_view message);

} // namespace velarix::ctl
