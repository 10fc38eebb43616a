#include "HeartbeatMessage.h"

#include <cstddef>
#include <string_view>
#include <vector>

#include <Poco/Exception.h>

#include "velarix/velarix.h"

namespace
{

/// Our own splitting: whether the library's tokenizer keeps an empty last token
/// differs between its versions, and the field count must not.
std::vector<std::string> splitAtSlashes(std::string_view text)
{
	if (!text.empty() && text.back() == '/')
	{
		text.remove_suffix(1);
	}
	std::vector<std::string> tokens;
	for (;;)
	{
		const std::size_t slash = text.find('/');
		tokens.emplace_back(text.substr(0, slash));
		if (slash == std::string_view::npos)
		{
			return tokens;
		}
		text.remove_prefix(slash + 1);
	}
}

const std::string& take(const std::vector<std::string>& tokens, std::size_t index)
{
	if (index >= tokens.size())
	{
		throw Poco::RangeException();
	}
	return tokens[index];
}

} // namespace

std::string composeHeartbeat(const HeartbeatMessage& message)
{
	std::string text;
	for (const std::string* pField :
	     {&message.prefix, &message.processRunning, &message.role, &message.startedTime, &message.specialAsk})
	{
		text += "/" + *pField;
	}
	return text + "/";
}

HeartbeatMessage splitHeartbeat(const std::string& text)
{
	const std::vector<std::string> tokens = splitAtSlashes(text);
	HeartbeatMessage message;
	message.prefix = take(tokens, 1);
	message.processRunning = take(tokens, 2);
	message.role = take(tokens, 3);
	message.startedTime = take(tokens, 4);
	message.specialAsk = take(tokens, 5);
	return message;
}
