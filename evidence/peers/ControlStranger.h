/// A third host on the service network, where keepalived and ucarp speak, that
/// sends what it has heard there.
#pragma once

#include "evidence/peers/ControlPair.h"

namespace velarix::lab
{

enum class StrangersWords
{
	replay, ///< the master's advertisement as it was
	garbage ///< advertisements of the same length with other bytes, and cut ones
};

/// From the gateway's host. Waits until an advertisement has been heard; then
/// sends twice a second until silenceStranger().
/// @throws LabError when nothing is heard, or a stranger speaks already
void letStrangerSpeak(ControlPair& pair, StrangersWords words);

/// @throws LabError when there is none, or when it had ended already
void silenceStranger(ControlPair& pair);

} // namespace velarix::lab
