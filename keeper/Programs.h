/// The managed programs, as they are run by their links: guard and worker.
#pragma once

#include <string>

#include "Settings.h"

namespace velarix::keeper::programs
{

/// ha-address. @return the exit status
int runAddress(const Settings& settings);
/// ha-NAME. @return the exit status
int runService(const ServiceSettings& service);

} // namespace velarix::keeper::programs
