#include "lab/campaigns/Times.h"

#include "lab/campaigns/Waits.h"

namespace velarix::lab
{

Millis CampaignTimes::quiet() const
{
	return sumOf("3*silence+4*ping+2*second+count+wait", pair) + slack;
}

} // namespace velarix::lab
