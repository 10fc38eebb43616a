/// Counts the heap allocations of the whole program, libraries included.
#pragma once

/// @return how often this thread has asked the C library for memory
unsigned long allocations();
