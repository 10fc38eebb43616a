#include "ctl/history/HistoryMachine.h"

namespace velarix::ctl
{

void HistoryMachine::found(Fault fault, std::string detail)
{
	FaultState& is = state(fault);
	is.reported.at = m_now;
	if (is.there || (fault == Fault::programs && isPlanned()))
	{
		return;
	}
	is.there = true;
	is.reported.since = m_now;
	is.reported.value = detail;
	++is.count;
	emit(EventKind::faultFound, Cause::none, std::string(wordOf(fault)), std::move(detail));
}

void HistoryMachine::gone(Fault fault, std::string detail)
{
	FaultState& is = state(fault);
	is.reported.at = m_now;
	if (!is.there)
	{
		return;
	}
	const Milliseconds there = since(is.reported.since);
	is.there = false;
	is.reported.since = m_now;
	is.reported.value.clear();
	emit(EventKind::faultGone, Cause::none, std::string(wordOf(fault)), std::move(detail), there);
}

/// A probe that nobody answered, with the reason that a line before it reported.
void HistoryMachine::unanswered(Fault fault)
{
	found(fault, std::exchange(m_agent.probeError, {}));
}

/// "service IP Check Failed: TEXT[CODE:1]": the reason, which the line behind it
/// does not tell.
void HistoryMachine::probeError()
{
	constexpr std::string_view mark = " Check Failed: ";
	const std::size_t at = m_line->text.find(mark);
	m_agent.probeError = oneLine(at == std::string::npos ? m_line->text : m_line->text.substr(at + mark.size()));
}

/// Also ends an action on a heartbeat in its middle.
void HistoryMachine::serverError()
{
	m_agent.takeOverError = oneLine(behind("Server Error: "));
	noteError();
}

} // namespace velarix::ctl
