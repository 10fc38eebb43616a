/// Options of the verbs.
#pragma once

#include <string>

#include <CLI/App.hpp>

namespace velarix::ctl
{

/// An option, or without hyphens in front a positional word; its value stays as it is when it is not given.
template <typename Value>
CLI::Option* option(CLI::App& verb, const std::string& name, Value& value, const std::string& type,
                    const std::string& text)
{
	return verb.add_option(name, value, text)->type_name(type);
}

/// The same; the help shows the value that it has now as the default.
template <typename Value>
CLI::Option* preset(CLI::App& verb, const std::string& name, Value& value, const std::string& type,
                    const std::string& text)
{
	return option(verb, name, value, type, text)->capture_default_str();
}

} // namespace velarix::ctl
