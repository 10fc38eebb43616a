#include "ctl/check/ShellTokens.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace velarix::ctl::shell
{

namespace
{

constexpr std::string_view kBlanks = " \t\r\n";
constexpr std::string_view kEndOfWord = " \t\r\n;&|()<>";
constexpr std::string_view kDigits = "0123456789";
/// Longer ones first.
constexpr std::array<std::string_view, 8> kSeparators{";;", "&&", "||", ";", "&", "|", "(", ")"};
constexpr std::array<std::string_view, 8> kRedirections{"<<<", "<<", ">>", ">&", "<&", ">|", "<>", ">"};

class Tokenizer
{
public:
	explicit Tokenizer(std::string_view text) : m_rest(text) {}

	Tokens run()
	{
		while (skipBlanks() && m_tokens.error.empty())
		{
			if (m_rest.front() == '#')
			{
				break;
			}
			if (!takeRedirection() && !takeSeparator())
			{
				takeWord();
			}
		}
		m_tokens.list.push_back({});
		return std::move(m_tokens);
	}

private:
	bool skipBlanks()
	{
		m_rest.remove_prefix(std::min(m_rest.find_first_not_of(kBlanks), m_rest.size()));
		return !m_rest.empty();
	}

	/// @return the first of the operators that the text begins with; empty if none
	template <typename Operators> static std::string_view operatorAt(std::string_view text, const Operators& operators)
	{
		const auto found =
		    std::ranges::find_if(operators, [&](std::string_view candidate) { return text.starts_with(candidate); });
		return found == operators.end() ? std::string_view() : *found;
	}

	/// A redirection is "<", ">" or one of the longer ones, with digits before it.
	bool takeRedirection()
	{
		const std::string_view digits = m_rest.substr(0, std::min(m_rest.find_first_not_of(kDigits), m_rest.size()));
		const std::string_view behind = m_rest.substr(digits.size());
		std::string_view sign = operatorAt(behind, kRedirections);
		if (sign.empty() && behind.starts_with('<'))
		{
			sign = behind.substr(0, 1);
		}
		if (sign.empty())
		{
			return false;
		}
		m_tokens.list.push_back({TokenKind::redirection, std::string(sign), false,
		                         digits.empty() ? -1 : std::stoi(std::string(digits.substr(0, 4)))});
		m_rest = behind.substr(sign.size());
		return true;
	}

	bool takeSeparator()
	{
		const std::string_view sign = operatorAt(m_rest, kSeparators);
		if (sign.empty())
		{
			return false;
		}
		m_tokens.bashRedirection = m_tokens.bashRedirection || m_rest.starts_with("&>");
		m_tokens.list.push_back({TokenKind::separator, std::string(sign), false, -1});
		m_rest.remove_prefix(sign.size());
		return true;
	}

	void takeWord()
	{
		Token word{TokenKind::word, {}, false, -1};
		while (!m_rest.empty() && kEndOfWord.find(m_rest.front()) == std::string_view::npos && m_tokens.error.empty())
		{
			takePiece(word);
		}
		m_tokens.list.push_back(std::move(word));
	}

	/// One character, one quoted piece or one substitution.
	void takePiece(Token& word)
	{
		const char first = m_rest.front();
		if (first == '\\')
		{
			word.quoted = true;
			word.text += m_rest.substr(1, 1);
			m_rest.remove_prefix(std::min<std::size_t>(2, m_rest.size()));
		}
		else if (first == '\'' || first == '"' || first == '`')
		{
			takeQuoted(word, first);
		}
		else if (m_rest.starts_with("$(") || m_rest.starts_with("${"))
		{
			takeSubstitution(word, m_rest[1] == '(' ? ')' : '}');
		}
		else
		{
			word.text += first;
			m_rest.remove_prefix(1);
		}
	}

	void takeQuoted(Token& word, char quote)
	{
		word.quoted = true;
		std::size_t at = 1;
		while (at < m_rest.size() && m_rest[at] != quote)
		{
			const bool escaped = quote != '\'' && m_rest[at] == '\\' && at + 1 < m_rest.size();
			at += escaped ? 1 : 0;
			word.text += m_rest[at++];
		}
		if (at == m_rest.size())
		{
			m_tokens.error = std::string("the ") + quote + " is not closed";
		}
		m_rest.remove_prefix(std::min(at + 1, m_rest.size()));
	}

	/// "$(...)" and "${...}" stay as they are, as a part of the word.
	void takeSubstitution(Token& word, char close)
	{
		const char open = m_rest[1];
		int depth = 0;
		std::size_t at = 1;
		do
		{
			depth += m_rest[at] == open ? 1 : 0;
			depth -= m_rest[at] == close ? 1 : 0;
			++at;
		} while (depth > 0 && at < m_rest.size());
		if (depth > 0)
		{
			m_tokens.error = std::string("the $") + open + " is not closed";
		}
		word.quoted = true;
		word.text += m_rest.substr(0, at);
		m_rest.remove_prefix(at);
	}

	std::string_view m_rest;
	Tokens m_tokens;
};

} // namespace

Tokens tokenize(const std::string& text)
{
	return Tokenizer(text).run();
}

} // namespace velarix::ctl::shell
