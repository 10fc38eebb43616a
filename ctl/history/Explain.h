/// What a message of the daemon means, found by whatever of it is at hand.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "inspect/Catalogue.h"

namespace velarix::ctl
{

using namespace inspect;

struct Explanation
{
	const CatalogueRow* row = nullptr;
	/// The place is this message's, but the text is none that it can have: another
	/// version of the daemon wrote it, or it was changed on its way here.
	bool otherText = false;
};

/// @param message "LABEL:NUMBER", a line of the log (whole or in part, with its
///        further lines), an echo on the console ("**ERROR**(LABEL:NUMBER)text"),
///        the report of a fatal condition, a line or a word of the keeper's log, or a
///        text alone, or a part of it
/// @return what it can be, in the order of the catalogue; several only for a text
///         alone; empty when it is not known
std::vector<Explanation> explain(std::string_view message);

/// Why nothing was found, with the nearest numbers of a label that is known.
std::string whyUnknown(std::string_view message);

/// Messages from lines, for text that was piped in: a line without a place belongs
/// to the message before it when that one can have several.
class MessageSplitter
{
public:
	/// @return a message that this line ended; empty when there is none
	std::string add(const std::string& line);
	/// @return the last message; empty when there is none
	std::string finish();

private:
	std::string m_message;
	bool m_takesLines = false;
};

std::string explanationText(const Explanation& explanation, bool colour);
nlohmann::ordered_json explanationJson(const Explanation& explanation);

} // namespace velarix::ctl
