#include "inspect/RunInfo.h"

namespace velarix::inspect
{

const char kInitialRunInfo[] = "[TRACE]\n"
                               "LAST_RUN_TIME = \n"
                               "MASTER_LAST_RUN_TIME = \n"
                               "SLAVE_LAST_RUN_TIME = \n";

} // namespace velarix::inspect
