/// Records as JSON. nlohmann's macros (NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE) make an
/// object of a struct, with the members' names as keys; what they do not know is here:
/// a time is a number of milliseconds, an empty optional is null.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "lab/core/Basics.h"
#include "lab/core/NodeSettings.h"

namespace nlohmann
{

template <> struct adl_serializer<velarix::lab::Millis>
{
	template <typename Json> static void to_json(Json& json, velarix::lab::Millis time) { json = time.count(); }
	template <typename Json> static void from_json(const Json& json, velarix::lab::Millis& time)
	{
		time = velarix::lab::Millis(json.template get<velarix::lab::Millis::rep>());
	}
};

template <typename Value> struct adl_serializer<std::optional<Value>>
{
	template <typename Json> static void to_json(Json& json, const std::optional<Value>& value)
	{
		json = value ? Json(*value) : Json();
	}
	template <typename Json> static void from_json(const Json& json, std::optional<Value>& value)
	{
		value = json.is_null() ? std::nullopt : std::optional<Value>(json.template get<Value>());
	}
};

} // namespace nlohmann

namespace velarix::lab
{

NLOHMANN_JSON_SERIALIZE_ENUM(Profile, {{Profile::keeper, "keeper"}, {Profile::plain, "plain"}})
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(PairSettings, interval, receivingTime, waitingTime, profile)

/// @return the record in one line; bytes that are no UTF-8 are replaced
inline std::string jsonText(const nlohmann::json& record)
{
	return record.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

/// @return the report in indented lines, for a file
inline std::string jsonFileText(const nlohmann::json& report)
{
	return report.dump(1, '\t', false, nlohmann::json::error_handler_t::replace) + "\n";
}

/// Reads what jsonText wrote.
/// @throws LabError when the text is no such record
template <typename Record> Record recordIn(const std::string& text)
{
	try
	{
		return nlohmann::json::parse(text).template get<Record>();
	}
	catch (const nlohmann::json::exception& error)
	{
		throw LabError(std::string("this is no such record: ") + error.what());
	}
}

} // namespace velarix::lab
