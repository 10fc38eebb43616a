#include "inspect/Printable.h"
#include "inspect/TimeText.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>

#include <Poco/UTF8Encoding.h>

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

std::string dateText(const std::tm& date)
{
	std::array<char, 32> text{};
	return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &date)};
}

/// Two units, the smaller one left out when it is zero.
std::string twoUnits(long long value, long long inOne, const char* large, const char* small)
{
	const std::string rest = value % inOne == 0 ? "" : " " + std::to_string(value % inOne) + " " + small;
	return std::to_string(value / inOne) + " " + large + rest;
}

/// @return the bytes of a character that may be shown and begins here; 0 when
///         there is none
std::size_t shownLength(std::string_view bytes)
{
	static const Poco::UTF8Encoding encoding;
	const auto* const begin = reinterpret_cast<const unsigned char*>(bytes.data());
	const int size = static_cast<int>(std::min(bytes.size(), std::size_t{4}));
	// Negative for what is no character, or only the beginning of one.
	const int code = encoding.queryConvert(begin, size);
	const bool control = code < 0x20 || (code >= 0x7f && code < 0xa0);
	return control ? 0 : static_cast<std::size_t>(encoding.sequenceLength(begin, size));
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
	return dateText(date);
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
	std::string text = dateText(date) + fraction.data();
	text.at(sizeof("2026-11-21") - 1) = 'T';
	return text;
}

double inSeconds(milliseconds span)
{
	return static_cast<double>(span.count()) / 1000.0;
}

double inSeconds(Instant time)
{
	return inSeconds(sinceEpoch(time));
}

std::string printable(std::string_view bytes)
{
	constexpr std::string_view digits = "0123456789abcdef";
	std::string text;
	text.reserve(bytes.size());
	for (std::size_t at = 0; at < bytes.size();)
	{
		const std::size_t length = shownLength(bytes.substr(at));
		if (length > 0)
		{
			text.append(bytes.substr(at, length));
			at += length;
			continue;
		}
		const auto byte = static_cast<unsigned char>(bytes[at++]);
		if (byte == '\n' || byte == '\t')
		{
			text += byte == '\n' ? "\\n" : "\\t";
		}
		else
		{
			text += {'\\', 'x', digits[byte >> 4U], digits[byte & 0xfU]};
		}
	}
	return text;
}

} // namespace velarix::inspect
