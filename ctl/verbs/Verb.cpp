#include "ctl/verbs/Verb.h"

#include <map>
#include <sstream>
#include <utility>

#include <CLI/CLI.hpp>

namespace velarix::ctl
{

namespace
{

/// A range that can be read in the refusal.
constexpr int kMostLooks = 1'000'000;

/// The library's own range lets "nan" through, which is no number to wait for.
CLI::Validator secondsFrom(double least, double most)
{
	std::ostringstream refusal;
	refusal << "is no number from " << least << " to " << most;
	return {[=, text = refusal.str()](std::string& given)
	        {
		        double value = 0;
		        const bool fits = CLI::detail::lexical_cast(given, value) && value >= least && value <= most;
		        return fits ? std::string() : "\"" + given + "\" " + text;
	        },
	        ""};
}

CLI::Validator member(const std::vector<std::string>& allowed)
{
	return CLI::IsMember(allowed).description("");
}

std::string alternatives(const std::vector<std::string>& allowed)
{
	return CLI::detail::join(allowed, "|");
}

} // namespace

Verb::Verb(CLI::App& app, const std::string& name, const std::string& text) : m_app(*app.add_subcommand(name, text))
{
}

Verb& Verb::word(const std::string& name, std::string& value, const std::string& text)
{
	m_app.add_option(name, value, text);
	return *this;
}

Verb& Verb::words(const std::string& name, std::vector<std::string>& values, const std::string& text)
{
	m_app.add_option(name, values, text)->required();
	return *this;
}

Verb& Verb::choice(const std::string& name, std::string& value, const std::vector<std::string>& allowed,
                   const std::string& text)
{
	m_app.add_option(name, value, text)->required()->type_name(alternatives(allowed))->check(member(allowed));
	return *this;
}

Verb& Verb::flag(const std::string& name, bool& value, const std::string& text)
{
	m_app.add_flag(name, value, text);
	return *this;
}

Verb& Verb::option(const std::string& name, std::string& value, const std::string& type, const std::string& text)
{
	m_app.add_option(name, value, text)->type_name(type);
	return *this;
}

Verb& Verb::preset(const std::string& name, std::string& value, const std::string& type, const std::string& text)
{
	m_app.add_option(name, value, text)->type_name(type)->capture_default_str();
	return *this;
}

Verb& Verb::preset(const std::string& name, int& value, const std::string& text)
{
	m_app.add_option(name, value, text)->capture_default_str();
	return *this;
}

Verb& Verb::preset(const std::string& name, int& value, int least, int most, const std::string& text)
{
	m_app.add_option(name, value, text)->capture_default_str()->check(CLI::Range(least, most));
	return *this;
}

Verb& Verb::list(const std::string& name, std::vector<std::string>& values, const std::string& type,
                 const std::string& text)
{
	m_app.add_option(name, values, text)->type_name(type)->allow_extra_args(false);
	return *this;
}

Verb& Verb::each(const std::string& name, const Take& take, const std::string& type, const std::string& text)
{
	const auto takeAll = [name, take](const std::vector<std::string>& all)
	{
		for (const std::string& given : all)
		{
			if (const std::string fault = take(given); !fault.empty())
			{
				throw CLI::ValidationError(name, fault);
			}
		}
	};
	m_app.add_option_function<std::vector<std::string>>(name, takeAll, text)->type_name(type)->allow_extra_args(false);
	return *this;
}

Verb& Verb::oneOf(const std::string& name, const std::vector<std::string>& allowed, const std::string& standard,
                  const std::function<void(const std::string&)>& take, const std::string& text)
{
	m_app.add_option_function<std::string>(name, take, text)
	    ->type_name(alternatives(allowed))
	    ->check(member(allowed))
	    ->default_str(standard);
	return *this;
}

Verb& Verb::seconds(const std::string& name, double& value, double least, double most, const std::string& text)
{
	m_app.add_option(name, value, text)->type_name("SECONDS")->check(secondsFrom(least, most));
	return *this;
}

Verb& Verb::span(const std::string& name, double& value, double least, double most, const std::string& text)
{
	constexpr double hour = 3600;
	m_app.add_option(name, value, text)
	    ->type_name("TIME")
	    ->transform(
	        CLI::AsNumberWithUnit(std::map<std::string, double>{{"s", 1}, {"m", 60}, {"h", hour}, {"d", 24 * hour}}))
	    ->check(CLI::Range(least, most));
	return *this;
}

Verb& Verb::ssh(std::string& target)
{
	return option("--ssh", target, "TARGET",
	              "the partner for ssh (VELARIX_PARTNER_SSH, else the settings' PARTNER_IP)");
}

Verb& Verb::count(const std::string& name, int& value, const std::string& text)
{
	m_app.add_option(name, value, text)->type_name("N")->check(CLI::Range(1, kMostLooks));
	return *this;
}

void Verb::run(Context& context, std::function<ExitCode()> action, std::function<std::string()> fault)
{
	const std::string name = m_app.get_name();
	m_app.callback(
	    [&context, name, action = std::move(action), fault = std::move(fault)]
	    {
		    if (const std::string text = fault ? fault() : ""; !text.empty())
		    {
			    throw CLI::ValidationError(name, text);
		    }
		    context.action = action;
	    });
}

} // namespace velarix::ctl
