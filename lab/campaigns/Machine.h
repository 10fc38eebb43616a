/// What a report has to say about the machine it was made on.
#pragma once

#include <string>

namespace velarix::lab
{

/// @return kernel and number of processors, for example "Linux 6.1.0, 2 processors"
std::string machineText();

} // namespace velarix::lab
