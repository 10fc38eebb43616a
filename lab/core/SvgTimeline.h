/// The timeline as a picture.
#pragma once

#include <string>

#include "lab/core/Timeline.h"

namespace velarix::lab
{

/// A complete SVG file: lanes for the role of each node, the owner of the
/// virtual address and the node that answers; faults as vertical lines with
/// labels; phases as bands; a time axis in seconds. Drawn up to `until`.
std::string toSvg(const Timeline& timeline, const std::string& title, Millis until);

} // namespace velarix::lab
