/// A user for whom a limit of processes is to hold.
#pragma once

#include <random>

#include <sys/types.h>

/// A user that nobody else is, this program's next run on the host included: the limit of
/// processes counts those of a user in every namespace, and does not bind root.
/// @return the same one throughout the program
inline uid_t userOfItsOwn()
{
	static const uid_t user = []
	{
		std::random_device chance;
		return std::uniform_int_distribution<uid_t>(1U << 20, 1U << 30)(chance);
	}();
	return user;
}
