#include "ctl/check/ShellCommand.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <initializer_list>
#include <set>
#include <string_view>

#include "ctl/check/ShellTokens.h"

namespace velarix::ctl::shell
{

namespace
{

using Stops = std::initializer_list<std::string_view>;

/// A recursive descent over the tokens. The first error ends it.
class Parser
{
public:
	explicit Parser(Tokens tokens) : m_tokens(std::move(tokens)) { m_error = m_tokens.error; }

	Script run()
	{
		Script script;
		script.bashRedirection = m_tokens.bashRedirection;
		script.commands = list({});
		if (m_error.empty() && peek().kind != TokenKind::end)
		{
			fail("\"" + peek().text + "\" has no beginning");
		}
		script.error = m_error;
		return script;
	}

private:
	const Token& peek() const { return m_tokens.list[m_at]; }

	bool done() const { return peek().kind == TokenKind::end || !m_error.empty(); }

	void next() { m_at = std::min(m_at + 1, m_tokens.list.size() - 1); }

	void fail(const std::string& why)
	{
		if (m_error.empty())
		{
			m_error = why;
		}
	}

	bool isSeparator(std::string_view text) const { return peek().kind == TokenKind::separator && peek().text == text; }

	bool isKeyword(std::string_view text) const
	{
		return peek().kind == TokenKind::word && !peek().quoted && peek().text == text;
	}

	bool isStop(const Stops& stops) const
	{
		return std::ranges::any_of(stops, [&](std::string_view stop)
		                           { return stop == ")" ? isSeparator(stop) : isKeyword(stop); });
	}

	bool takeSeparator(std::string_view text)
	{
		const bool found = isSeparator(text);
		if (found)
		{
			next();
		}
		return found;
	}

	void expect(std::string_view text)
	{
		if (!isStop({text}))
		{
			fail("\"" + std::string(text) + "\" is missing");
			return;
		}
		next();
	}

	/// Commands up to one of the stops, which is left in place.
	std::vector<Command> list(const Stops& stops)
	{
		std::vector<Command> commands;
		while (!done() && !isStop(stops) && !isSeparator(")"))
		{
			std::vector<Command> chain = andOr();
			if (isSeparator("&"))
			{
				std::ranges::for_each(chain, [](Command& command) { command.background = true; });
			}
			std::ranges::move(chain, std::back_inserter(commands));
			if (!takeSeparator("&") && !takeSeparator(";") && !done() && !isStop(stops) && !isSeparator(")"))
			{
				fail("\"" + peek().text + "\" is out of place");
			}
		}
		return commands;
	}

	/// Pipelines joined by "&&" and "||".
	std::vector<Command> andOr()
	{
		std::vector<Command> commands;
		do
		{
			pipeline(commands);
		} while (takeSeparator("&&") || takeSeparator("||"));
		return commands;
	}

	void pipeline(std::vector<Command>& commands)
	{
		if (isKeyword("!"))
		{
			next();
		}
		commands.push_back(command());
		while (takeSeparator("|"))
		{
			commands.back().silenced = true;
			commands.push_back(command());
		}
	}

	Command command()
	{
		Command result;
		if (takeSeparator("("))
		{
			group(result, ")");
		}
		else if (isKeyword("{"))
		{
			next();
			group(result, "}");
		}
		else if (isKeyword("while") || isKeyword("until"))
		{
			conditionLoop(result);
		}
		else if (isKeyword("for"))
		{
			forLoop(result);
		}
		else if (isKeyword("if"))
		{
			ifBranch(result);
		}
		else if (isKeyword("case"))
		{
			caseBranch(result);
		}
		else
		{
			simple(result);
			return result;
		}
		redirections(result);
		return result;
	}

	void group(Command& result, std::string_view close)
	{
		result.kind = Kind::group;
		result.parts = list({close});
		expect(close);
	}

	void body(Command& result)
	{
		expect("do");
		std::ranges::move(list({"done"}), std::back_inserter(result.parts));
		expect("done");
	}

	void conditionLoop(Command& result)
	{
		result.kind = Kind::loop;
		result.words = {peek().text};
		next();
		result.parts = list({"do"});
		result.conditions = result.parts.size();
		body(result);
	}

	void forLoop(Command& result)
	{
		result.kind = Kind::loop;
		result.words = {peek().text};
		next();
		while (!done() && !isSeparator(";") && !isKeyword("do"))
		{
			next();
		}
		takeSeparator(";");
		body(result);
	}

	void ifBranch(Command& result)
	{
		result.kind = Kind::branch;
		next();
		result.parts = list({"then"});
		expect("then");
		while (!done() && !isKeyword("fi"))
		{
			std::ranges::move(list({"elif", "else", "then", "fi"}), std::back_inserter(result.parts));
			if (!isKeyword("fi") && !done())
			{
				next();
			}
		}
		expect("fi");
	}

	/// What a case does in its branches is not looked at.
	void caseBranch(Command& result)
	{
		result.kind = Kind::branch;
		while (!done() && !isKeyword("esac"))
		{
			next();
		}
		expect("esac");
	}

	void simple(Command& result)
	{
		bool something = false;
		while (m_error.empty() && (peek().kind == TokenKind::word || peek().kind == TokenKind::redirection))
		{
			something = true;
			if (peek().kind == TokenKind::redirection)
			{
				redirection(result);
				continue;
			}
			if (!result.words.empty() || peek().quoted || !isAssignment(peek().text))
			{
				result.words.push_back(peek().text);
			}
			next();
		}
		if (!something)
		{
			fail(done() ? "it breaks off" : "\"" + peek().text + "\" is out of place");
		}
		lookIntoShell(result);
	}

	static bool isAssignment(const std::string& word)
	{
		const std::size_t equals = word.find('=');
		return equals != std::string::npos && equals > 0 && std::isdigit(static_cast<unsigned char>(word[0])) == 0 &&
		       std::all_of(word.begin(), word.begin() + static_cast<std::ptrdiff_t>(equals),
		                   [](unsigned char c) { return std::isalnum(c) != 0 || c == '_'; });
	}

	/// "sh -c TEXT" is a group of the text's commands.
	void lookIntoShell(Command& result)
	{
		static const std::set<std::string> kShells{"sh", "bash", "dash"};
		if (result.words.size() < 3 || !kShells.contains(baseName(result.words[0])) || result.words[1] != "-c")
		{
			return;
		}
		const Script inner = parse(result.words[2]);
		if (inner.error.empty())
		{
			result.kind = Kind::group;
			result.words.clear();
			result.parts = inner.commands;
		}
	}

	void redirections(Command& result)
	{
		while (m_error.empty() && peek().kind == TokenKind::redirection)
		{
			redirection(result);
		}
	}

	void redirection(Command& result)
	{
		const Token sign = peek();
		next();
		if (peek().kind != TokenKind::word)
		{
			fail("\"" + sign.text + "\" leads nowhere");
			return;
		}
		const bool output = sign.text.front() == '>' || sign.text == "<>";
		const bool ofOutput = output && (sign.descriptor == 1 || (sign.descriptor == -1 && sign.text != "<>"));
		result.silenced = result.silenced || (ofOutput && !(sign.text == ">&" && peek().text == "1"));
		next();
	}

	Tokens m_tokens;
	std::size_t m_at = 0;
	std::string m_error;
};

class Walk
{
public:
	explicit Walk(const std::function<void(const Command&, const Place&)>& visit) : m_visit(visit) {}

	void over(const std::vector<Command>& commands, Place place)
	{
		for (const Command& command : commands)
		{
			Place here = place;
			here.silenced = place.silenced || command.silenced;
			here.background = place.background || command.background;
			if (command.kind == Kind::simple)
			{
				m_visit(command, here);
			}
			else
			{
				here.within.push_back(&command);
				over(command.parts, here);
			}
			// "exec >FILE" turns the output of all that follows away.
			const bool fromHere = command.words == std::vector<std::string>{"exec"} && command.silenced;
			place.silenced = place.silenced || fromHere;
		}
	}

private:
	const std::function<void(const Command&, const Place&)>& m_visit;
};

bool isNumber(const std::string& word)
{
	return !word.empty() && word.find_first_not_of("0123456789.smhd") == std::string::npos &&
	       std::isdigit(static_cast<unsigned char>(word[0])) != 0;
}

} // namespace

Script parse(const std::string& text)
{
	return Parser(tokenize(text)).run();
}

void forEachSimple(const Script& script, const std::function<void(const Command&, const Place&)>& visit)
{
	Walk(visit).over(script.commands, {});
}

std::vector<std::string> programWords(const Command& command)
{
	static const std::set<std::string> kFronts{"sudo", "exec", "command", "nohup",   "setsid",
	                                           "nice", "env",  "ionice",  "timeout", "stdbuf"};
	std::vector<std::string> words = command.words;
	while (words.size() > 1 && kFronts.contains(baseName(words[0])))
	{
		words.erase(words.begin());
		while (words.size() > 1 &&
		       (words[0].starts_with('-') || isNumber(words[0]) || words[0].find('=') != std::string::npos))
		{
			words.erase(words.begin());
		}
	}
	return words;
}

std::string baseName(const std::string& path)
{
	return path.substr(path.rfind('/') + 1);
}

bool hasOption(const std::vector<std::string>& words, char option)
{
	for (std::size_t i = 1; i < words.size(); ++i)
	{
		const std::string& word = words[i];
		if (word.size() > 1 && word[0] == '-' && word[1] != '-' && word.find(option, 1) != std::string::npos)
		{
			return true;
		}
	}
	return false;
}

} // namespace velarix::ctl::shell
