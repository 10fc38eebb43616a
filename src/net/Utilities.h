/// Small helpers on text and time. They hold no state and take no locks.
#pragma once

#include <string>

/// @return true when `pattern` occurs anywhere in `text`; an empty one always does
bool stringFinder(std::string& text, std::string& pattern);

/// @return the number that `text` begins with, as the standard stream reads it: 0 when it
///         begins with none, the largest double (or its negative) when it is out of range
double string2double(std::string& text);

/// @return the local time now as 14 digits, year to second run together. Safe to
///         call from several threads at once.
std::string getCurrentTime();

/// Not called by the daemon.
/// @return the number of `second` minus the number of `first`. For two time
///         stamps that is the difference of two 14-digit numbers, not seconds.
double calculateDefferentTime(std::string& first, std::string& second);

/// @return "1" for true, "0" for false
std::string boolToString(bool value);
