/// Tables of expectations, written as TOML and read by named keys. What is wrong with a
/// table is reported with the number of its line.
#pragma once

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <toml++/toml.h>

namespace velarix::lab
{

/// A table of TOML, that is values by their keys: a whole file, or one row of it.
class TomlTable
{
public:
	/// @throws LabError when the text is no TOML
	static TomlTable parse(const std::string& text);

	/// The number of the line on which the table begins.
	unsigned line() const { return m_table->source().begin.line; }
	bool has(const std::string& key) const { return m_table->contains(key); }

	/// @throws LabError when there is no such text
	std::string text(const std::string& key, const std::optional<std::string>& otherwise = std::nullopt) const;
	/// One of some words. @throws LabError when it is another one
	std::string oneOf(const std::string& key, const std::set<std::string>& words,
	                  const std::optional<std::string>& otherwise = std::nullopt) const;
	bool flag(const std::string& key) const;
	/// A number from 0 on; "inf" in the file: empty.
	std::optional<int> limit(const std::string& key, int otherwise) const;
	std::vector<std::string> texts(const std::string& key) const;
	TomlTable table(const std::string& key) const;
	std::vector<TomlTable> tables(const std::string& key) const;

	/// @throws LabError when there is any other key
	void allowOnly(const std::set<std::string>& keys) const;

	/// Calls, and puts the number of the line before what it throws.
	template <typename Call> auto atLine(Call call) const
	{
		try
		{
			return call();
		}
		catch (const std::exception& error)
		{
			fail(error.what());
		}
	}

private:
	std::shared_ptr<const toml::table> m_table; ///< keeps the whole file: a copy would not know its line

	explicit TomlTable(std::shared_ptr<const toml::table> table) : m_table(std::move(table)) {}
	[[noreturn]] void fail(const std::string& problem) const;
	template <typename Value> const auto& valueOf(const std::string& key, const char* kind) const;
};

} // namespace velarix::lab
