/// Digits, and whole texts read as numbers.
#pragma once

#include <charconv>
#include <optional>
#include <string_view>
#include <system_error>

namespace velarix::inspect
{

/// In every locale.
constexpr bool isDigit(char c)
{
	return c >= '0' && c <= '9';
}

/// @return the number that the whole text is; nothing for any other text and for a number
///         out of range
template <typename Number> std::optional<Number> numberIn(std::string_view text, int base = 10)
{
	Number value{};
	// A number holds nothing of the text, which cppcheck does not see.
	// cppcheck-suppress invalidLifetime
	const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
	return error == std::errc() && end == text.data() + text.size() ? std::optional<Number>(value) : std::nullopt;
}

} // namespace velarix::inspect
