/// What a message of the daemon means, found by whatever of it is at hand.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "inspect/Catalogue.h"

namespace velarix::ctl
{

using namespace inspect;

struct Explanation
{
	const CatalogueRow* row;
	/// The place is this message's, but the text is none that it can have: another
	/// version of the daemon wrote it, or it was changed on its way here.
	bool otherText;

	Explanation(const CatalogueRow* what, bool other = false) : row(what), otherText(other) {}
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

/// @return whether a line of a text that was piped in belongs to the message before it: one without a
///         place, behind a message that can have several lines
bool continues(std::string_view message, std::string_view line);

std::string explanationText(const Explanation& explanation, bool colour);
nlohmann::ordered_json explanationJson(const Explanation& explanation);

} // namespace velarix::ctl
