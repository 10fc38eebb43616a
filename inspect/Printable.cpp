#include "inspect/Printable.h"

#include <cstdint>

namespace velarix::inspect
{

namespace
{

std::uint32_t byteAt(std::string_view bytes, std::size_t at)
{
	return static_cast<unsigned char>(bytes[at]);
}

/// @return how many bytes the lead byte of a character announces; 0 for none
std::size_t lengthOf(std::uint32_t lead)
{
	if (lead < 0x80)
	{
		return 1;
	}
	if (lead >= 0xc2 && lead < 0xe0)
	{
		return 2;
	}
	if (lead >= 0xe0 && lead < 0xf0)
	{
		return 3;
	}
	return lead >= 0xf0 && lead < 0xf5 ? 4 : 0;
}

/// @return the bytes of a character that may be shown and begins here; 0 when
///         there is none
std::size_t shownLength(std::string_view bytes, std::size_t at)
{
	const std::uint32_t lead = byteAt(bytes, at);
	const std::size_t length = lengthOf(lead);
	if (length == 1)
	{
		return lead >= 0x20 && lead != 0x7f ? 1 : 0;
	}
	if (length == 0 || at + length > bytes.size())
	{
		return 0;
	}
	std::uint32_t code = lead & (0x7fU >> length);
	for (std::size_t next = 1; next < length; ++next)
	{
		if ((byteAt(bytes, at + next) & 0xc0U) != 0x80)
		{
			return 0;
		}
		code = (code << 6U) | (byteAt(bytes, at + next) & 0x3fU);
	}
	const bool overlong = (length == 3 && code < 0x800) || (length == 4 && code < 0x10000);
	const bool surrogate = code >= 0xd800 && code < 0xe000;
	const bool control = code < 0xa0;
	return overlong || surrogate || control || code > 0x10ffff ? 0 : length;
}

} // namespace

std::string printable(std::string_view bytes)
{
	constexpr std::string_view digits = "0123456789abcdef";
	std::string text;
	text.reserve(bytes.size());
	for (std::size_t at = 0; at < bytes.size();)
	{
		const std::size_t length = shownLength(bytes, at);
		if (length > 0)
		{
			text.append(bytes.substr(at, length));
			at += length;
			continue;
		}
		const std::uint32_t byte = byteAt(bytes, at++);
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
