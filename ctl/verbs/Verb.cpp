#include "ctl/verbs/Verb.h"

#include <map>
#include <sstream>
#include <type_traits>
#include <utility>

#include <CLI/CLI.hpp>

namespace velarix::ctl
{

namespace
{

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

} // namespace

Verb::Verb(CLI::App& app, const std::string& name, const std::string& text) : m_app(*app.add_subcommand(name, text))
{
}

Verb& Verb::flag(const std::string& name, bool& value, const std::string& text)
{
	m_last = m_app.add_flag(name, value, text);
	return *this;
}

template <typename Value>
Verb& Verb::option(const std::string& name, Value& value, const std::string& type, const std::string& text)
{
	m_last = m_app.add_option(name, value, text)->type_name(type);
	if constexpr (std::is_same_v<Value, std::vector<std::string>>)
	{
		m_last->allow_extra_args(!name.starts_with('-'));
	}
	return *this;
}

template Verb& Verb::option(const std::string&, std::string&, const std::string&, const std::string&);
template Verb& Verb::option(const std::string&, int&, const std::string&, const std::string&);
template Verb& Verb::option(const std::string&, double&, const std::string&, const std::string&);
template Verb& Verb::option(const std::string&, std::vector<std::string>&, const std::string&, const std::string&);

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

Verb& Verb::ssh(std::string& target)
{
	return option("--ssh", target, "TARGET",
	              "the partner for ssh (VELARIX_PARTNER_SSH, else the settings' PARTNER_IP)");
}

Verb& Verb::shown()
{
	m_last->capture_default_str();
	return *this;
}

Verb& Verb::required()
{
	m_last->required();
	return *this;
}

Verb& Verb::oneOf(const std::vector<std::string>& allowed)
{
	m_last->type_name(CLI::detail::join(allowed, "|"))->check(CLI::IsMember(allowed).description(""));
	return *this;
}

Verb& Verb::within(int least, int most)
{
	m_last->check(CLI::Range(least, most));
	return *this;
}

Verb& Verb::within(double least, double most)
{
	m_last->check(secondsFrom(least, most));
	return *this;
}

Verb& Verb::spanWithin(double least, double most)
{
	constexpr double hour = 3600;
	const std::map<std::string, double> units{{"s", 1}, {"m", 60}, {"h", hour}, {"d", 24 * hour}};
	m_last->transform(CLI::AsNumberWithUnit(units))->check(CLI::Range(least, most));
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
