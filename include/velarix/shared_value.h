/// Access to the plain values that several threads share.
///
/// The workers get plain pointers (`MODE*`, `bool*`) and no common lock. Each
/// access goes through these two helpers, so that the program is free of data
/// races while the words in memory and the signatures stay plain.
#pragma once

#include <atomic>

namespace velarix
{

/// @return the value that is there now
template <typename T> T loadShared(T& value)
{
	return std::atomic_ref<T>(value).load();
}

/// Puts `desired` in place in one store.
template <typename T> void storeShared(T& value, T desired)
{
	std::atomic_ref<T>(value).store(desired);
}

} // namespace velarix
