/// Headers of libraries that most files of the companion programs include, precompiled
/// for all of them. A source file includes what it uses all the same.
#pragma once

#include <nlohmann/json.hpp>

#include "headers_core.h"
