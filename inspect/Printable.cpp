#include "inspect/Printable.h"

#include <algorithm>

#include <Poco/UTF8Encoding.h>

namespace velarix::inspect
{

namespace
{

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
