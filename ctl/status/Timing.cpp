#include "ctl/status/Timing.h"

#include <algorithm>

#include "inspect/SettingsKeys.h"

namespace velarix::ctl
{

namespace
{

using std::chrono::milliseconds;
using std::chrono::seconds;

/// What a loaded machine may add.
constexpr seconds kSlack{5};
/// The sender's pause after a failed connect.
constexpr seconds kRetry{2};
/// Three silent pings and the pause after a silence.
constexpr seconds kChecks{10};
/// Two countdowns of five seconds and a round of pings.
constexpr seconds kAddress{11};

} // namespace

Timing Timing::of(const SettingsFile& settings)
{
	const auto read = [&](const char* name) { return seconds(std::max(0, settings.integer(name).value_or(0))); };
	return {read(key::kInterval), read(key::kReceivingTime), read(key::kCheckCycle), read(key::kWaitingTime)};
}

milliseconds Timing::logPause() const
{
	const seconds sender = receivingTime + std::max(interval, kRetry);
	return std::min(checkCycle, sender) + kSlack;
}

milliseconds Timing::receiverPause() const
{
	return receivingTime + kChecks + kSlack;
}

milliseconds Timing::rolePause() const
{
	return std::max<milliseconds>(checkCycle + kSlack, receiverPause());
}

milliseconds Timing::heartbeatPause() const
{
	return 2 * (interval + receivingTime) + kSlack;
}

milliseconds Timing::handOver() const
{
	return interval + kRetry + kAddress + waitingTime + interval;
}

} // namespace velarix::ctl
