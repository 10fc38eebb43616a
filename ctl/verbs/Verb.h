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
}

namespace velarix::ctl
{

class Verb
{
public:
	/// Takes one text. @return what is wrong with it; empty for nothing
	using Take = std::function<std::string(const std::string& given)>;

	Verb(CLI::App& app, const std::string& name, const std::string& text);

	/// A positional word; without a value given it stays as it is.
	Verb& word(const std::string& name, std::string& value, const std::string& text);
	/// Positional words, at least one.
	Verb& words(const std::string& name, std::vector<std::string>& values, const std::string& text);
	/// A positional word that is one of `allowed`.
	Verb& choice(const std::string& name, std::string& value, const std::vector<std::string>& allowed,
	             const std::string& text);

	Verb& flag(const std::string& name, bool& value, const std::string& text);
	/// @param type what stands for the value in the help, "FILE"
	Verb& option(const std::string& name, std::string& value, const std::string& type, const std::string& text);
	/// The help shows the value that it has now as the default.
	Verb& preset(const std::string& name, std::string& value, const std::string& type, const std::string& text);
	Verb& preset(const std::string& name, int& value, const std::string& text);
	Verb& preset(const std::string& name, int& value, int least, int most, const std::string& text);
	/// May be given several times, one value each.
	Verb& list(const std::string& name, std::vector<std::string>& values, const std::string& type,
	           const std::string& text);
	/// May be given several times; `take` sees them in the order of the command line.
	Verb& each(const std::string& name, const Take& take, const std::string& type, const std::string& text);
	/// One of `allowed`. @param standard the default for the help; empty for none
	Verb& oneOf(const std::string& name, const std::vector<std::string>& allowed, const std::string& standard,
	            const std::function<void(const std::string&)>& take, const std::string& text);
	/// "--ssh", the target for asking the partner.
	Verb& ssh(std::string& target);
	/// A number of seconds from `least` to `most`; "nan" is none.
	Verb& seconds(const std::string& name, double& value, double least, double most, const std::string& text);
	/// Seconds, or a number with "m", "h" or "d" behind it.
	Verb& span(const std::string& name, double& value, double least, double most, const std::string& text);
	/// One or more.
	Verb& count(const std::string& name, int& value, const std::string& text);

	/// @param action  what the verb does, run after the whole command line has been read
	/// @param fault   @return what is wrong with the options together; empty for nothing
	void run(Context& context, std::function<ExitCode()> action, std::function<std::string()> fault = {});

private:
	CLI::App& m_app;
};

} // namespace velarix::ctl
