/// One verb of the command line: its words and options, and what it does.
///
/// It keeps the command line library in one source file: the library's header costs each
/// file that includes it three seconds of compiling.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "ctl/Context.h"

namespace CLI
{
class App;
class Option;
} // namespace CLI

namespace velarix::ctl
{

class Verb
{
public:
	/// Takes one text. @return what is wrong with it; empty for nothing
	using Take = std::function<std::string(const std::string& given)>;

	Verb(CLI::App& app, const std::string& name, const std::string& text);

	Verb& flag(const std::string& name, bool& value, const std::string& text);
	/// A value that stays as it is when it is not given; without hyphens in front a positional word.
	/// @tparam Value std::string, int, double or a std::vector<std::string>, whose option may be given
	///         several times, one value each
	/// @param type what stands for the value in the help, "FILE"
	template <typename Value>
	Verb& option(const std::string& name, Value& value, const std::string& type, const std::string& text);
	/// The same; the help shows the value that it has now as the default.
	template <typename Value>
	Verb& preset(const std::string& name, Value& value, const std::string& type, const std::string& text)
	{
		return option(name, value, type, text).shown();
	}
	/// May be given several times; `take` sees them in the order of the command line.
	Verb& each(const std::string& name, const Take& take, const std::string& type, const std::string& text);
	/// "--ssh", the target for asking the partner.
	Verb& ssh(std::string& target);

	// Of the option before.
	Verb& required();
	Verb& oneOf(const std::vector<std::string>& allowed);
	Verb& within(int least, int most);
	/// "nan" is none of them.
	Verb& within(double least, double most);
	/// Seconds, or a number with "m", "h" or "d" behind it.
	Verb& spanWithin(double least, double most);

	/// @param action  what the verb does, run after the whole command line has been read
	/// @param fault   @return what is wrong with the options together; empty for nothing
	void run(Context& context, std::function<ExitCode()> action, std::function<std::string()> fault = {});

private:
	CLI::App& m_app;
	CLI::Option* m_last = nullptr;

	Verb& shown();
};

} // namespace velarix::ctl
