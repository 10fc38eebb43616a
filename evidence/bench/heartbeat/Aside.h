/// What belongs to neither contender: the partner's part in a pass of the receiver, and
/// the answers to the receiver's pings, which cost nothing here.
#pragma once

#include <string>

namespace aside
{

/// What was done aside so far.
struct Taken
{
	double seconds = 0; ///< of a processor
	unsigned long allocations = 0;
};

Taken taken();

/// From now on `partner` is called, aside, whenever this program begins to listen.
/// @param partner  null: nobody calls
void onListening(void (*partner)());

/// Writes something that strace shows and that does nothing else.
/// @throws std::runtime_error when it was written somewhere
void mark(const std::string& text);

/// What is done aside is put between the marks "aside" and "back".
void showMarks();

} // namespace aside
