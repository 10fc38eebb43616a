#include "lab/tables/Toml.h"

#include <cmath>

#include "lab/core/Basics.h"
#include "lab/core/Files.h"

namespace velarix::lab
{

TomlTable TomlTable::parse(const std::string& text)
try
{
	return TomlTable(std::make_shared<const toml::table>(toml::parse(text)));
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

void TomlTable::fail(const std::string& problem) const
{
	// A problem of a table within this one has its line already.
	throw LabError(problem.starts_with("line ") ? problem
	                                            : "line " + std::to_string(line()) + " of the table: " + problem);
}

template <typename Value> const auto& TomlTable::valueOf(const std::string& key, const char* kind) const
{
	const toml::node* node = m_table->get(key);
	if (node == nullptr)
	{
		fail("there is no \"" + key + "\"");
	}
	const auto* value = node->as<Value>();
	if (value == nullptr)
	{
		fail("\"" + key + "\" is no " + kind);
	}
	return *value;
}

std::string TomlTable::text(const std::string& key, const std::optional<std::string>& otherwise) const
{
	return otherwise && !has(key) ? *otherwise : valueOf<std::string>(key, "text").get();
}

std::string TomlTable::oneOf(const std::string& key, const std::set<std::string>& words,
                             const std::optional<std::string>& otherwise) const
{
	std::string word = text(key, otherwise);
	if (!words.contains(word))
	{
		fail("\"" + word + "\" is no \"" + key + "\"");
	}
	return word;
}

bool TomlTable::flag(const std::string& key) const
{
	return has(key) && valueOf<bool>(key, "truth value").get();
}

std::optional<int> TomlTable::limit(const std::string& key, int otherwise) const
{
	if (!has(key))
	{
		return otherwise;
	}
	const std::optional<double> number = m_table->get(key)->value<double>();
	if (!number)
	{
		fail("\"" + key + "\" is no number");
	}
	if (std::isinf(*number))
	{
		return std::nullopt;
	}
	if (*number < 0 || *number > 1e6 || *number != std::floor(*number))
	{
		fail("\"" + key + "\" is no whole number from 0 on");
	}
	return static_cast<int>(*number);
}

std::vector<std::string> TomlTable::texts(const std::string& key) const
{
	std::vector<std::string> list;
	for (const toml::node& value : valueOf<toml::array>(key, "list"))
	{
		if (!value.is_string())
		{
			fail("\"" + key + "\" is no list of texts");
		}
		list.push_back(value.ref<std::string>());
	}
	return list;
}

TomlTable TomlTable::table(const std::string& key) const
{
	return TomlTable({m_table, &valueOf<toml::table>(key, "table")});
}

std::vector<TomlTable> TomlTable::tables(const std::string& key) const
{
	std::vector<TomlTable> list;
	for (const toml::node& value : valueOf<toml::array>(key, "list"))
	{
		if (!value.is_table())
		{
			fail("\"" + key + "\" is no list of tables");
		}
		list.push_back(TomlTable({m_table, value.as_table()}));
	}
	return list;
}

void TomlTable::allowOnly(const std::set<std::string>& keys) const
{
	for (const auto& [key, value] : *m_table)
	{
		if (!keys.contains(std::string(key.str())))
		{
			fail("\"" + std::string(key.str()) + "\" means nothing here");
		}
	}
}

} // namespace velarix::lab
