/// The words and operators of a shell command line.
#pragma once

#include <string>
#include <vector>

namespace velarix::ctl::shell
{

enum class TokenKind
{
	word,
	/// ; & && || | ( ) ;;
	separator,
	/// > >> < >& <& >| <> with the descriptor before it
	redirection,
	end
};

struct Token
{
	TokenKind kind = TokenKind::end;
	/// Without quotes.
	std::string text;
	/// A part of the word was quoted, so that it is no keyword.
	bool quoted = false;
	/// Of a redirection; -1 without a number before it.
	int descriptor = -1;
};

struct Tokens
{
	/// Ends in one of kind `end`.
	std::vector<Token> list;
	/// Why the text is no shell command; empty when it can be one.
	std::string error;
	/// "&>" was there; it is taken as sh takes it, "&" and ">".
	bool bashRedirection = false;
};

Tokens tokenize(const std::string& text);

} // namespace velarix::ctl::shell
