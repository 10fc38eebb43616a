/// Ports and disk space of this machine. Part of the seam that Host.h describes.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace velarix::inspect::host
{

/// Tries to listen as the agent does, and stops at once.
/// @return whether another program has the port
bool isPortTaken(const std::string& address, int port);

/// @return whether the kernel may give the port to an outgoing connection;
///         nothing when it does not tell
std::optional<bool> isOutgoingPort(int port);

/// @return the bytes that root may still write there; nothing when it is not known
std::optional<std::uintmax_t> freeSpace(const std::filesystem::path& directory);

/// @return how many files may still be made there; nothing when it is not known or
///         the file system has no such limit
std::optional<std::uintmax_t> freeFiles(const std::filesystem::path& directory);

} // namespace velarix::inspect::host
