#include "evidence/peers/Attacker.h"

#include "lab/core/Plan.h"
#include "lab/core/Wait.h"

namespace velarix::evidence::peers
{

namespace
{

constexpr const char* jobName = "attacker on the service network";
constexpr const char* receivedMark = "/run/attacker-has-heard";

/// Both protocols have number 112. The frame is sent as it was heard, with the
/// sender's addresses: that is what makes it a replay.
constexpr const char* program = R"(
import os, random, socket, sys, time
wire = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(0x0800))
wire.bind((sys.argv[1], 0))
wire.settimeout(10)
while True:
    heard = wire.recv(2000)
    if len(heard) > 34 and heard[23] == 112:
        break
head = 14 + (heard[14] & 15) * 4
open(sys.argv[3], 'w').close()
kinds = 0
while True:
    frame = heard
    if sys.argv[2] == 'garbage':
        frame = heard[:head] + os.urandom(len(heard) - head)
        frame = frame[:head + random.randrange(len(heard) - head)] if kinds % 2 else frame
    wire.send(frame)
    kinds += 1
    time.sleep(0.5)
)";

} // namespace

void startAttacker(Pair& pair, AttackerOutput words)
{
	Lab& lab = pair.lab();
	const Host& gateway = lab.host(HostId::gateway);
	lab.jobs().start(gateway, jobName,
	                 {"python3", "-c", program, plan::serviceCard,
	                  words == AttackerOutput::garbage ? "garbage" : "replay", receivedMark});
	const std::string mark = "/proc/" + std::to_string(gateway.pid()) + "/root" + receivedMark;
	if (!waitFor([&] { return std::filesystem::exists(mark); }, Millis(15000), "the attacker to hear the master"))
	{
		lab.jobs().end(jobName);
		throw LabError("the attacker does not hear the master");
	}
}

void stopAttacker(Pair& pair)
{
	pair.lab().jobs().end(jobName);
	std::filesystem::remove("/proc/" + std::to_string(pair.lab().host(HostId::gateway).pid()) + "/root" + receivedMark);
}

} // namespace velarix::evidence::peers
