/// Sets of nodes as the timeline and the records write them: "none", "a", "b",
/// "a+b". Owners of the virtual address are the usual case.
#pragma once

#include <string>
#include <string_view>

#include "lab/core/Basics.h"

namespace velarix::lab
{

/// @return the text for the set of those that are true
inline std::string ownersText(bool a, bool b)
{
	if (a && b)
	{
		return "a+b";
	}
	return a ? "a" : (b ? "b" : "none");
}

/// @return true when the node is one of them
inline bool holds(std::string_view owners, HostId node)
{
	return owners == nameOf(node) || owners == "a+b";
}

/// @return true for "a" and "b"
inline bool isSingle(std::string_view owners)
{
	return owners == "a" || owners == "b";
}

} // namespace velarix::lab
