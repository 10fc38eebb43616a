#include "ctl/render/Exposition.h"

#include <array>
#include <charconv>
#include <utility>

#include <Poco/String.h>

namespace velarix::ctl
{

namespace
{

std::string escaped(std::string_view text)
{
	std::string result(text);
	Poco::replaceInPlace(result, std::string("\\"), std::string("\\\\"));
	return Poco::replaceInPlace(result, std::string("\n"), std::string("\\n"));
}

/// Milliseconds at most, without zeros that tell nothing.
std::string numberText(double value)
{
	std::array<char, 64> digits{};
	const auto end =
	    std::to_chars(digits.data(), digits.data() + digits.size(), value, std::chars_format::fixed, 3).ptr;
	std::string text(digits.data(), end);
	text.erase(text.find_last_not_of('0') + 1);
	if (text.ends_with('.'))
	{
		text.pop_back();
	}
	return text;
}

} // namespace

void Exposition::family(std::string_view name, std::string_view help, std::string_view type)
{
	m_name = "velarix_" + std::string(name);
	m_head = "# HELP " + m_name + " " + escaped(help) + "\n";
	m_head += "# TYPE " + m_name + " " + std::string(type) + "\n";
}

void Exposition::sample(double value, Labels labels)
{
	m_text += std::exchange(m_head, {}) + m_name;
	char separator = '{';
	for (const auto& [name, content] : labels)
	{
		m_text += separator + std::string(name) + "=\"" +
		          Poco::replace(escaped(content), std::string("\""), std::string("\\\"")) + "\"";
		separator = ',';
	}
	m_text += (separator == ',' ? "} " : " ") + numberText(value) + "\n";
}

} // namespace velarix::ctl
