/// A log read a second time, to see that the reader's messages are all of it.
#pragma once

#include <string>
#include <vector>

#include "inspect/LogLine.h"

namespace fuzz
{

/// Ends the program unless the messages, one after the other, are the text: each
/// head as it is written there, each text byte for byte.
/// @param messages none of them cut
void expectWhole(const std::string& text, const std::vector<velarix::inspect::LogLine>& messages);

} // namespace fuzz
