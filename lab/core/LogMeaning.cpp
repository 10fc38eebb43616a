#include "lab/core/LogMeaning.h"

#include <algorithm>
#include <array>

namespace velarix::lab
{

namespace
{

constexpr const char* giveUp = "gives up the master role, kills the programs";
constexpr const char* bothMasters = "both are master: back to what is set";
constexpr const char* partnerAsks = "takes over: the partner asks";
constexpr const char* runPrograms = "runs the programs as master";

/// Rows with a role are each place where the agent's role changes and, for a lab that
/// looks on later, the lines with which every pass of the receiver tells its role.
constexpr std::array<LogMeaning, 40> meanings{{
    {"CAgent", 25, nullptr, "starts clean: drops the address, kills the programs", LogMark::workBegins},
    {"CAgent", 38, "slave", nullptr},
    {"CHeartReciver", 94, nullptr, nullptr, LogMark::passBegins},
    {"CHeartReciver", 106, "slave", "gives up the master role, asks the partner"},
    {"CHeartReciver", 182, nullptr, "no carrier on the communication interface: not counted"},
    {"CHeartReciver", 192, nullptr, "third silence in a row"},
    {"CHeartReciver", 201, nullptr, "partner silent but reachable: stays standby"},
    {"CHeartReciver", 218, "master", runPrograms},
    {"CHeartReciver", 282, nullptr, bothMasters},
    {"CHeartReciver", 324, nullptr, bothMasters},
    {"CHeartReciver", 414, "master", partnerAsks},
    {"CHeartReciver", 443, "master", partnerAsks},
    {"CHeartReciver", 470, "master", "kills the programs to run them again"},
    {"CHeartReciver", 473, "master", runPrograms},
    {"CHeartReciver", 480, "slave", "returns to the standby role, kills the programs"},
    {"CHeartReciver", 505, "master", nullptr},
    {"CHeartReciver", 508, nullptr, "the gateway does not answer"},
    {"CHeartReciver", 509, "slave", giveUp},
    {"CHeartReciver", 516, nullptr, "the service address does not answer"},
    {"CHeartReciver", 517, "slave", giveUp},
    {"CHeartReciver", 524, nullptr, "the service interface has no carrier"},
    {"CHeartReciver", 525, "slave", giveUp},
    {"CHeartReciver", 538, "slave", nullptr},
    {"CHeartReciver", 543, "slave", "partner and service address are silent"},
    {"CHeartReciver", 549, "master", "takes over: both addresses silent"},
    {"CHeartReciver", 567, nullptr, "the managed programs do not run"},
    {"CHeartReciver", 601, "master", runPrograms},
    {"Utill", 48, nullptr, "raises the address"},
    {"Utill", 62, nullptr, "starts the programs"},
    {"Utill", 490, nullptr, "waits for the address to answer"},
    {"Utill", 504, nullptr, "the address cannot be pinged"},
    // The partner's address, the gateway and the service address are probed.
    {"Utill", 756, nullptr, nullptr, LogMark::probeBegins},
    {"Utill", 760, nullptr, nullptr, LogMark::probeAnswered},
    {"Utill", 768, nullptr, nullptr, LogMark::probeSilent},
    {"Utill", 774, nullptr, nullptr, LogMark::probeBegins},
    {"Utill", 783, nullptr, nullptr, LogMark::probeAnswered},
    {"Utill", 791, nullptr, nullptr, LogMark::probeSilent},
    {"Utill", 797, nullptr, nullptr, LogMark::probeBegins},
    {"Utill", 807, nullptr, nullptr, LogMark::probeAnswered},
    {"Utill", 817, nullptr, nullptr, LogMark::probeSilent},
}};

} // namespace

const LogMeaning* meaningOf(const inspect::LogLine& line)
{
	const auto* found = std::find_if(meanings.begin(), meanings.end(),
	                                 [&](const LogMeaning& meaning) { return line.is(meaning.label, meaning.number); });
	return found == meanings.end() ? nullptr : found;
}

} // namespace velarix::lab
