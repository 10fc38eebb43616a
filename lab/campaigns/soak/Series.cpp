#include "lab/campaigns/soak/Series.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace velarix::lab::soak
{

namespace
{

constexpr double millisPerHour = 3600000;
constexpr double millisPerMinute = 60000;
constexpr std::size_t fewestForLine = 3;

double hoursOf(Millis time)
{
	return static_cast<double>(time.count()) / millisPerHour;
}

std::string oneDigit(double value)
{
	char text[64];
	std::snprintf(text, sizeof text, "%.1f", value);
	return text;
}

void judgeGrowth(const std::vector<Sample>& samples, long Sample::*value, const char* what, long perHour,
                 std::vector<std::string>& found)
{
	const std::optional<Line> line = lineThrough(samples, value);
	if (!line)
	{
		return;
	}
	const double hours = std::max(1.0, hoursOf(samples.back().at - samples.front().at));
	const double allowed = static_cast<double>(perHour) * hours + 2 * line->deviation;
	if (line->overSpan > allowed)
	{
		found.push_back(std::string(what) + " grows by " + oneDigit(line->overSpan) + " KiB in " +
		                secondsText(samples.back().at - samples.front().at) + ", allowed are " + oneDigit(allowed));
	}
}

void judgeSample(const Sample& sample, const Bounds& bounds, std::vector<std::string>& found)
{
	const std::string at = "at " + secondsText(sample.at) + ": ";
	const auto require = [&](bool within, const std::string& otherwise)
	{
		if (!within)
		{
			found.push_back(at + otherwise);
		}
	};
	require(!sample.kept || *sample.kept == bounds.kept,
	        std::to_string(sample.kept.value_or(0)) + " descriptors are kept");
	require(sample.descriptors <= bounds.descriptors, std::to_string(sample.descriptors) + " descriptors are open");
	require(!sample.atRest || sample.threads == bounds.threads, std::to_string(sample.threads) + " threads");
	require(sample.oldestZombie <= bounds.zombie, "a zombie of " + secondsText(sample.oldestZombie));
}

void judgeLog(const Series& series, const Bounds& bounds, std::vector<std::string>& found)
{
	const Sample& first = series.samples.front();
	const Sample& last = series.samples.back();
	// A minute at least: a start writes more lines than the minutes after it.
	const double minutes = std::max(1.0, static_cast<double>((last.at - first.at).count()) / millisPerMinute);
	const double grown = last.logged > first.logged ? static_cast<double>(last.logged - first.logged) / 1024 : 0;
	if (grown > static_cast<double>(bounds.logKibPerMinute) * minutes)
	{
		found.push_back("the log grows by " + oneDigit(grown / minutes) + " KiB in a minute");
	}
}

} // namespace

std::string toText(const Bounds& bounds)
{
	return "after a warm-up of " + secondsText(bounds.warmUp) + ": memory of its own grows by at most " +
	       std::to_string(bounds.ownKibPerHour) + " KiB an hour and resident memory by at most " +
	       std::to_string(bounds.rssKibPerHour) +
	       " KiB an hour, beyond jitter\nat rest: " + std::to_string(bounds.kept) + " descriptors are kept, " +
	       std::to_string(bounds.threads) + " threads, no zombie lives longer than " + secondsText(bounds.zombie) +
	       "\nat any time: at most " + std::to_string(bounds.descriptors) + " descriptors; log files grow by at most " +
	       std::to_string(bounds.logKibPerMinute) + " KiB a minute\n";
}

std::optional<Line> lineThrough(const std::vector<Sample>& samples, long Sample::*value)
{
	if (samples.size() < fewestForLine || samples.back().at <= samples.front().at)
	{
		return std::nullopt;
	}
	const auto count = static_cast<double>(samples.size());
	double meanTime = 0;
	double meanValue = 0;
	for (const Sample& sample : samples)
	{
		meanTime += hoursOf(sample.at) / count;
		meanValue += static_cast<double>(sample.*value) / count;
	}
	double timeSquares = 0;
	double products = 0;
	double valueSquares = 0;
	for (const Sample& sample : samples)
	{
		const double time = hoursOf(sample.at) - meanTime;
		const double difference = static_cast<double>(sample.*value) - meanValue;
		timeSquares += time * time;
		products += time * difference;
		valueSquares += difference * difference;
	}
	Line line;
	line.perHour = products / timeSquares;
	line.overSpan = line.perHour * hoursOf(samples.back().at - samples.front().at);
	line.deviation = std::sqrt(std::max(0.0, valueSquares - line.perHour * products) / count);
	return line;
}

std::vector<Sample> settled(const Series& series, const Bounds& bounds)
{
	std::vector<Sample> samples;
	for (const Sample& sample : series.samples)
	{
		if (sample.at - series.samples.front().at >= bounds.warmUp)
		{
			samples.push_back(sample);
		}
	}
	return samples;
}

bool isJudged(const Series& series, const Bounds& bounds)
{
	const bool keptSeen = std::any_of(series.samples.begin(), series.samples.end(),
	                                  [](const Sample& sample) { return sample.kept.has_value(); });
	return keptSeen && settled(series, bounds).size() >= std::max(bounds.settled, fewestForLine);
}

std::vector<std::string> crossingsOf(const Series& series, const Bounds& bounds)
{
	std::vector<std::string> found;
	if (series.samples.empty())
	{
		return found;
	}
	const std::vector<Sample> late = settled(series, bounds);
	if (late.size() >= bounds.settled)
	{
		judgeGrowth(late, &Sample::ownKib, "memory of its own", bounds.ownKibPerHour, found);
		judgeGrowth(late, &Sample::rssKib, "resident memory", bounds.rssKibPerHour, found);
	}
	for (const Sample& sample : series.samples)
	{
		judgeSample(sample, bounds, found);
	}
	judgeLog(series, bounds, found);
	return found;
}

} // namespace velarix::lab::soak
