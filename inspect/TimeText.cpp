#include "inspect/TimeText.h"

#include <array>
#include <cstdio>
#include <ctime>
#include <iomanip>
#include <sstream>

namespace velarix::inspect
{

namespace
{

using std::chrono::milliseconds;
using Instant = std::chrono::system_clock::time_point;

milliseconds sinceEpoch(Instant time)
{
	return std::chrono::floor<milliseconds>(time.time_since_epoch());
}

/// @param between what separates the date from the time of day
std::string dateText(const std::tm& date, char between)
{
	std::ostringstream text;
	text << std::put_time(&date, "%Y-%m-%d") << between << std::put_time(&date, "%H:%M:%S");
	return text.str();
}

/// Two units, the smaller one left out when it is zero.
std::string twoUnits(long long value, long long inOne, const char* large, const char* small)
{
	const std::string rest = value % inOne == 0 ? "" : " " + std::to_string(value % inOne) + " " + small;
	return std::to_string(value / inOne) + " " + large + rest;
}

} // namespace

std::string spanText(milliseconds span)
{
	if (span < milliseconds(0))
	{
		return "-" + spanText(-span);
	}
	constexpr long long kMinute = 60;
	constexpr long long kHour = 60 * kMinute;
	constexpr long long kDay = 24 * kHour;
	const long long tenths = (span.count() + 50) / 100;
	const long long seconds = (span.count() + 500) / 1000;
	if (tenths < 100)
	{
		return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + " s";
	}
	if (seconds < kMinute)
	{
		return std::to_string(seconds) + " s";
	}
	if (seconds < kHour)
	{
		return twoUnits(seconds, kMinute, "min", "s");
	}
	return seconds < kDay ? twoUnits(seconds / kMinute, 60, "h", "min") : twoUnits(seconds / kHour, 24, "d", "h");
}

std::string localText(Instant time)
{
	const std::time_t seconds = std::chrono::floor<std::chrono::seconds>(time.time_since_epoch()).count();
	std::tm date{};
	::localtime_r(&seconds, &date);
	return dateText(date, ' ');
}

std::string isoText(Instant time)
{
	const milliseconds whole = sinceEpoch(time);
	const auto seconds = std::chrono::floor<std::chrono::seconds>(whole);
	const std::time_t epoch = seconds.count();
	std::tm date{};
	::gmtime_r(&epoch, &date);
	std::array<char, 8> fraction{};
	std::snprintf(fraction.data(), fraction.size(), ".%03dZ", static_cast<int>((whole - seconds).count()));
	return dateText(date, 'T') + fraction.data();
}

double inSeconds(milliseconds span)
{
	return static_cast<double>(span.count()) / 1000.0;
}

double inSeconds(Instant time)
{
	return inSeconds(sinceEpoch(time));
}

} // namespace velarix::inspect
