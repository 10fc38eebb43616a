#include "lab/campaigns/matrix/MatrixTimes.h"

#include "lab/campaigns/matrix/Waits.h"

namespace velarix::lab
{

Millis MatrixTimes::quiet() const
{
	return sumOf("3*silence+4*ping+2*second+count+wait", pair) + slack;
}

} // namespace velarix::lab
