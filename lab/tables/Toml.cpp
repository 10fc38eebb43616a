#include "lab/tables/Toml.h"

#include <cmath>

#include <toml++/toml.h>

#include "lab/core/Basics.h"
#include "lab/core/Files.h"

namespace velarix::lab
{

namespace
{

/// No key of a file: a table's line travels under it.
constexpr const char* lineKey = "";

/// The library's nodes as JSON, which the rest of the lab knows.
nlohmann::json jsonOf(const toml::node& node)
{
	if (const toml::table* table = node.as_table())
	{
		nlohmann::json values{{lineKey, node.source().begin.line}};
		for (const auto& [key, value] : *table)
		{
			values[std::string(key.str())] = jsonOf(value);
		}
		return values;
	}
	if (const toml::array* array = node.as_array())
	{
		nlohmann::json values = nlohmann::json::array();
		for (const toml::node& value : *array)
		{
			values.push_back(jsonOf(value));
		}
		return values;
	}
	if (node.is_integer())
	{
		return node.ref<std::int64_t>();
	}
	if (node.is_floating_point())
	{
		return node.ref<double>();
	}
	return node.is_boolean() ? nlohmann::json(node.ref<bool>())
	                         : nlohmann::json(node.value<std::string>().value_or(""));
}

} // namespace

TomlTable TomlTable::parse(const std::string& text)
try
{
	return TomlTable(jsonOf(toml::parse(text)));
}
catch (const toml::parse_error& error)
{
	throw LabError("line " + std::to_string(error.source().begin.line) +
	               " of the table: " + std::string(error.description()));
}

TomlTable TomlTable::read(const std::filesystem::path& file)
{
	return parse(contentOf(file));
}

TomlTable::TomlTable(nlohmann::json values) : m_values(std::move(values)), m_line(m_values.at(lineKey).get<int>())
{
	m_values.erase(lineKey);
}

void TomlTable::fail(const std::string& problem) const
{
	// A problem of a table within this one has its line already.
	throw LabError(problem.starts_with("line ") ? problem
	                                            : "line " + std::to_string(m_line) + " of the table: " + problem);
}

const nlohmann::json& TomlTable::valueOf(const std::string& key, const char* kind,
                                         bool (nlohmann::json::*isKind)() const noexcept) const
{
	if (!has(key))
	{
		fail("there is no \"" + key + "\"");
	}
	const nlohmann::json& value = m_values.at(key);
	if (!(value.*isKind)())
	{
		fail("\"" + key + "\" is no " + kind);
	}
	return value;
}

std::string TomlTable::text(const std::string& key) const
{
	return valueOf(key, "text", &nlohmann::json::is_string).get<std::string>();
}

std::string TomlTable::text(const std::string& key, const std::string& otherwise) const
{
	return has(key) ? text(key) : otherwise;
}

std::string TomlTable::oneOf(const std::string& key, const std::set<std::string>& words,
                             const std::optional<std::string>& otherwise) const
{
	const std::string word = otherwise ? text(key, *otherwise) : text(key);
	if (!words.contains(word))
	{
		fail("\"" + word + "\" is no \"" + key + "\"");
	}
	return word;
}

bool TomlTable::flag(const std::string& key) const
{
	return has(key) && valueOf(key, "truth value", &nlohmann::json::is_boolean).get<bool>();
}

std::optional<int> TomlTable::limit(const std::string& key, int otherwise) const
{
	if (!has(key))
	{
		return otherwise;
	}
	const auto number = valueOf(key, "number", &nlohmann::json::is_number).get<double>();
	if (std::isinf(number))
	{
		return std::nullopt;
	}
	if (number < 0 || number > 1e6 || number != std::floor(number))
	{
		fail("\"" + key + "\" is no whole number from 0 on");
	}
	return static_cast<int>(number);
}

std::vector<std::string> TomlTable::texts(const std::string& key) const
{
	std::vector<std::string> list;
	for (const nlohmann::json& value : valueOf(key, "list", &nlohmann::json::is_array))
	{
		if (!value.is_string())
		{
			fail("\"" + key + "\" is no list of texts");
		}
		list.push_back(value.get<std::string>());
	}
	return list;
}

TomlTable TomlTable::table(const std::string& key) const
{
	return TomlTable(valueOf(key, "table", &nlohmann::json::is_object));
}

std::vector<TomlTable> TomlTable::tables(const std::string& key) const
{
	std::vector<TomlTable> list;
	for (const nlohmann::json& value : valueOf(key, "list", &nlohmann::json::is_array))
	{
		if (!value.is_object())
		{
			fail("\"" + key + "\" is no list of tables");
		}
		list.push_back(TomlTable(value));
	}
	return list;
}

void TomlTable::allowOnly(const std::set<std::string>& keys) const
{
	for (const auto& [key, value] : m_values.items())
	{
		if (!keys.contains(key))
		{
			fail("\"" + key + "\" means nothing here");
		}
	}
}

} // namespace velarix::lab
