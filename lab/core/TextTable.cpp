#include "lab/core/TextTable.h"

#include <algorithm>

namespace velarix::lab
{

std::string aligned(const std::vector<Row>& rows)
{
	std::vector<std::size_t> widths(rows.front().size(), 0);
	for (const Row& row : rows)
	{
		std::ranges::transform(row, widths, widths.begin(),
		                       [](const std::string& cell, std::size_t width) { return std::max(cell.size(), width); });
	}
	std::string text;
	for (const Row& row : rows)
	{
		for (std::size_t column = 0; column < row.size(); ++column)
		{
			text += row[column] + std::string(widths[column] - row[column].size() + 2, ' ');
		}
		text.erase(text.find_last_not_of(' ') + 1);
		text += '\n';
	}
	return text;
}

} // namespace velarix::lab
