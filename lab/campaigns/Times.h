/// How long the matrix waits and what it allows; all of it follows the settings of
/// the pair.
#pragma once

#include "lab/core/Basics.h"
#include "lab/core/NodeSettings.h"

namespace velarix::lab
{

struct CampaignTimes
{
	PairSettings pair{};
	Millis noOutage{1000}; ///< an outage up to this counts as none
	Millis slack{2000};    ///< allowed beyond the fixed waits: a loaded machine

	/// As long as the agent can be about something without a visible change: three
	/// silences are counted, the partner is probed, the address counted down to.
	Millis quiet() const;
	/// A phase that is not steady by then is not going to be.
	Millis patience() const { return 3 * quiet(); }
	/// A pair that does not serve by then is not going to.
	Millis serveLimit() const { return 6 * quiet(); }
	/// The longest run is a pair's start, a move and two phases.
	Millis runLimit() const { return 40 * quiet(); }
};

} // namespace velarix::lab
