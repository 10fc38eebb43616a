#include "lab/campaigns/hostile/Record.h"

#include "lab/core/Basics.h"
#include "lab/core/TextTable.h"

namespace velarix::lab::hostile
{

namespace
{

Row rowOf(const Record& record)
{
	const Observation& during = record.during;
	return {record.name,
	        std::to_string(record.tries),
	        std::to_string(record.read) + "/" + std::to_string(record.partner),
	        std::to_string(record.dropped),
	        during.roles[0] + ", " + during.roles[1],
	        secondsText(Millis(during.noAnswerMs)) + " of " + secondsText(Millis(during.durationMs)),
	        secondsText(Millis(during.duplicateMs)),
	        record.differences.empty() ? "as expected" : "DIFFERS"};
}

} // namespace

std::string toText(const std::vector<Record>& records)
{
	std::vector<Row> rows{{"case", "tries", "read/partner's", "dropped", "roles", "outage", "duplicate", "verdict"}};
	std::string differences;
	for (const Record& record : records)
	{
		rows.push_back(rowOf(record));
		for (const std::string& difference : record.differences)
		{
			differences += record.name + ": " + difference + "\n";
		}
	}
	return aligned(rows) + differences;
}

} // namespace velarix::lab::hostile
