/// Tables of texts for a terminal.
#pragma once

#include <string>
#include <vector>

namespace velarix::lab
{

/// One line of a table; every row has as many cells as the first one, that of titles.
using Row = std::vector<std::string>;

/// Columns as wide as their widest cell, two blanks between them.
std::string aligned(const std::vector<Row>& rows);

} // namespace velarix::lab
