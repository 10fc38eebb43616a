/// Tables of expectations, written as TOML and read by named keys. What is wrong with a
/// table is reported with the number of its line.
#pragma once

#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace velarix::lab
{

/// A table of TOML, that is values by their keys: a whole file, or one row of it.
class TomlTable
{
public:
	/// @throws LabError when the text is no TOML
	static TomlTable parse(const std::string& text);
	/// @throws LabError when the file cannot be read, or is no TOML
	static TomlTable read(const std::filesystem::path& file);

	/// The number of the line on which the table begins.
	int line() const { return m_line; }
	bool has(const std::string& key) const { return m_values.contains(key); }

	/// @throws LabError when there is no such text
	std::string text(const std::string& key) const;
	std::string text(const std::string& key, const std::string& otherwise) const;
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
	nlohmann::json m_values;
	int m_line = 1;

	explicit TomlTable(nlohmann::json values);
	[[noreturn]] void fail(const std::string& problem) const;
	const nlohmann::json& valueOf(const std::string& key, const char* kind,
	                              bool (nlohmann::json::*isKind)() const noexcept) const;
};

} // namespace velarix::lab
