#include "lab/campaigns/matrix/Statistics.h"

#include <algorithm>
#include <cstdio>

namespace velarix::lab
{

namespace
{

std::string plainSeconds(Millis time)
{
	char text[32];
	std::snprintf(text, sizeof text, "%.3f", static_cast<double>(time.count()) / 1000);
	return text;
}

} // namespace

std::optional<Summary> summaryOf(std::vector<Millis> values)
{
	if (values.empty())
	{
		return std::nullopt;
	}
	std::sort(values.begin(), values.end());
	const std::size_t count = values.size();
	Summary summary;
	summary.count = count;
	summary.median = (values[(count - 1) / 2] + values[count / 2]) / 2;
	summary.p95 = values[(count * 95 + 99) / 100 - 1];
	summary.max = values.back();
	return summary;
}

std::string toText(const std::optional<Summary>& summary)
{
	return summary
	           ? plainSeconds(summary->median) + " / " + plainSeconds(summary->p95) + " / " + plainSeconds(summary->max)
	           : "-";
}

} // namespace velarix::lab
