#include "ctl/notify/Delivery.h"

#include <algorithm>
#include <cctype>
#include <utility>

#include "ctl/OutputFile.h"
#include "ctl/render/StateViews.h"
#include "inspect/ExitCode.h"
#include "inspect/Host.h"
#include "inspect/InputFile.h"

namespace velarix::ctl::notify
{

using namespace inspect;
using std::chrono::milliseconds;

namespace
{

constexpr std::size_t kMostBehind = 1000;

Json markJson(const Mark& mark)
{
	return {{"time", std::chrono::duration_cast<milliseconds>(mark.at.time_since_epoch()).count()},
	        {"event", mark.identity}};
}

Mark markOf(const Json& json)
{
	return {Instant(milliseconds(json.at("time").get<std::int64_t>())), json.at("event").get<std::string>()};
}

std::string variable(std::string name, const Json& value)
{
	std::ranges::transform(name, name.begin(), [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
	return "VELARIX_" + name + "=" + (value.is_string() ? value.get<std::string>() : jsonText(value));
}

} // namespace

std::string Message::identity() const
{
	std::string text;
	for (const char* member : {"time", "event", "pid", "place", "subject", "word"})
	{
		text += json.contains(member) ? jsonText(json[member]) + " " : "";
	}
	return text;
}

bool Resumption::passes(const Message& message)
{
	if (!m_catchesUp)
	{
		return true;
	}
	if (!m_found && message.identity() == m_mark.identity)
	{
		m_found = true;
		m_behind.clear();
		m_dropped = 0;
	}
	else if (m_found || message.at >= m_mark.at)
	{
		m_behind.push_back(message);
		if (m_behind.size() > kMostBehind)
		{
			m_behind.pop_front();
			++m_dropped;
		}
	}
	return false;
}

std::deque<Message> Resumption::rest()
{
	m_catchesUp = false;
	return std::exchange(m_behind, {});
}

std::optional<Position> Position::read(const std::filesystem::path& file)
{
	if (host::fileFacts(file).kind == host::FileKind::missing)
	{
		return std::nullopt;
	}
	const Json json = Json::parse(readInputFile(file), nullptr, false);
	try
	{
		return Position{markOf(json.at("agent")), markOf(json.at("keeper"))};
	}
	catch (const Json::exception&)
	{
		throw Failure(ExitCode::settings, file.string() + " is damaged");
	}
}

void Position::write(const std::filesystem::path& file) const
{
	replaceFile(file, jsonText(Json{{"agent", markJson(agent)}, {"keeper", markJson(keeper)}}) + "\n");
}

host::ProgramEnd deliver(const Notifier& notifier, const Json& event, milliseconds limit)
{
	host::ProgramCall call{{notifier.path.string()}, {}, jsonText(event) + "\n", limit};
	for (const auto& [name, value] : event.items())
	{
		call.environment.push_back(variable(name, value));
	}
	return host::runProgram(call);
}

} // namespace velarix::ctl::notify
