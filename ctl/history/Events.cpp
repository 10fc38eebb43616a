#include "ctl/history/Events.h"

namespace velarix::ctl
{

namespace
{

/// The word of an enumerator; the table holds one for each, in their order.
template <std::size_t Size, typename Value>
std::string_view wordAt(const std::array<std::string_view, Size>& words, Value value)
{
	return words.at(static_cast<std::size_t>(value));
}

} // namespace

std::string_view wordOf(EventKind kind)
{
	static constexpr std::array<std::string_view, kEventKinds> words{
	    "agent-started",    "agent-resumed",       "agent-ended",       "role-changed",    "takeover-began",
	    "takeover-done",    "takeover-unfinished", "ask-made",          "ask-answered",    "ask-unanswered",
	    "ask-received",     "fault-found",         "fault-gone",        "silence-counted", "partner-lost",
	    "partner-back",     "partner-changed",     "partner-restarted", "address-dropped", "address-starting",
	    "address-waiting",  "address-failed",      "address-up",        "program-killed",  "programs-started",
	    "programs-running", "programs-stopped",    "log-gap",           "clock-set-back",  "error"};
	return wordAt(words, kind);
}

std::string_view wordOf(Cause cause)
{
	static constexpr std::array<std::string_view, 17> words{"none",
	                                                        "agent-start",
	                                                        "killed",
	                                                        "fatal-error",
	                                                        "gateway-silent",
	                                                        "service-address-silent",
	                                                        "service-interface-down",
	                                                        "programs-gone",
	                                                        "partner-silent",
	                                                        "partner-and-service-silent",
	                                                        "partner-asked",
	                                                        "configured-role",
	                                                        "both-masters",
	                                                        "takeover",
	                                                        "give-up",
	                                                        "switchover",
	                                                        "not-logged"};
	return wordAt(words, cause);
}

std::string_view wordOf(Fault fault)
{
	static constexpr std::array<std::string_view, kFaults> words{
	    "gateway",  "partner-address", "service-address", "service-interface", "communication-interface",
	    "programs", "heartbeats",      "partner-port",    "both-masters",      "foreign-message"};
	return wordAt(words, fault);
}

std::string_view wordOf(Role role)
{
	static constexpr std::array<std::string_view, 3> words{"not known", "master", "slave"};
	return wordAt(words, role);
}

std::string_view textOf(Role role)
{
	return role == Role::slave ? "standby" : wordOf(role);
}

std::string_view wordOf(AddressState state)
{
	static constexpr std::array<std::string_view, 5> words{"not known", "dropped", "starting", "waiting", "up"};
	return wordAt(words, state);
}

} // namespace velarix::ctl
