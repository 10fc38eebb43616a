#include "lab/core/TextTable.h"

namespace velarix::lab
{

namespace
{

std::string alignedLine(const Row& row, const std::vector<std::size_t>& widths)
{
	std::string line;
	for (std::size_t column = 0; column < row.size(); ++column)
	{
		line += row[column] + std::string(widths[column] - row[column].size() + 2, ' ');
	}
	return line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
}

} // namespace

std::string aligned(const Row& titles, std::vector<Row> rows)
{
	rows.insert(rows.begin(), titles);
	std::vector<std::size_t> widths(titles.size(), 0);
	for (const Row& row : rows)
	{
		for (std::size_t column = 0; column < row.size(); ++column)
		{
			widths[column] = std::max(widths[column], row[column].size());
		}
	}
	std::string text;
	for (const Row& row : rows)
	{
		text += alignedLine(row, widths);
	}
	return text;
}

} // namespace velarix::lab
