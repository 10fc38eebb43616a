/// The check as it was before it was made faster, to compare with.
#pragma once

/// @return what Utill::isProcessRunning returns
bool earlierCheck();
