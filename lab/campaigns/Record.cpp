#include "lab/campaigns/Record.h"

namespace velarix::lab
{

bool RunRecord::asExpected() const
{
	return differencesOf(*this).empty();
}

std::vector<std::string> differencesOf(const RunRecord& record)
{
	std::vector<std::string> lines;
	for (std::size_t index = 0; index < record.phases.size(); ++index)
	{
		for (const std::string& difference : record.phases[index].differences)
		{
			lines.push_back((index == 0 ? "fault: " : "repaired: ") + difference);
		}
	}
	lines.insert(lines.end(), record.differences.begin(), record.differences.end());
	return lines;
}

} // namespace velarix::lab
