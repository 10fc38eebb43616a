/// The rules by which one value of the run-info record is replaced: a reference model
/// with whole texts instead of buffers.
#pragma once

#include <string>

namespace fuzz
{

/// @param key "SECTION.NAME"
/// @return the file with every line of that key replaced; the file itself when the
///         key has a hundred characters or more
std::string iniAfterChange(const std::string& file, const std::string& key, const std::string& value);

} // namespace fuzz
