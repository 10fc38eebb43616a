#include "lab/campaigns/Json.h"

namespace velarix::lab
{

namespace
{

constexpr auto replace = nlohmann::json::error_handler_t::replace;

} // namespace

std::string jsonText(const nlohmann::json& record)
{
	return record.dump(-1, ' ', false, replace);
}

std::string jsonFileText(const nlohmann::json& report)
{
	return report.dump(1, '\t', false, replace) + "\n";
}

} // namespace velarix::lab
