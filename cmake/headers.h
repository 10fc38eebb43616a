/// Headers that most files of the companion programs include, precompiled for all of them. A
/// source file includes what it uses all the same. nlohmann/json.hpp is not one of them: it costs
/// more in each file that does without it than a precompiled one saves where it is used.
#pragma once

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>
