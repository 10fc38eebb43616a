/// A third host on the service network, where keepalived and ucarp speak, that
/// sends what it has heard there.
#pragma once

#include "evidence/Lab.h"
#include "evidence/peers/Pair.h"

namespace velarix::evidence::peers
{

enum class AttackerOutput
{
	replay, ///< the master's advertisement as it was
	garbage ///< advertisements of the same length with other bytes, and cut ones
};

/// From the gateway's host. Waits until an advertisement has been heard; then
/// sends twice a second until stopAttacker().
/// @throws LabError when nothing is heard, or an attacker speaks already
void startAttacker(Pair& pair, AttackerOutput words);

/// @throws LabError when there is none, or when it had ended already
void stopAttacker(Pair& pair);

} // namespace velarix::evidence::peers
