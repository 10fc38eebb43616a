/// What the tests of the history share: situations that the lab does not bring
/// about, message by message.
#pragma once

#include "CtlTest.h"
#include "ctl/history/Events.h"

namespace velarix::ctl
{

using namespace inspect;

inline constexpr char kStop[] = "drop address";
inline constexpr char kKill[] = "drop address; killall -9";
inline constexpr char kStart[] = "raise address";

/// An event on one line: "WORD FROM->TO (CAUSE) SUBJECT DETAIL DURATIONms"; what it
/// does not have is left out.
inline std::string textOf(const Event& event)
{
	std::ostringstream text;
	text << wordOf(event.kind);
	if (event.kind == EventKind::roleChanged || event.kind == EventKind::partnerChanged)
	{
		text << ' ' << wordOf(event.from) << "->" << wordOf(event.to);
	}
	if (event.cause != Cause::none)
	{
		text << " (" << wordOf(event.cause) << ')';
	}
	for (const std::string& part : {event.subject, event.detail})
	{
		text << (part.empty() ? "" : " " + part);
	}
	if (event.duration)
	{
		text << " " << event.duration->count() << "ms";
	}
	return text.str();
}

/// Feeds a history by hand; each message comes a tenth of a second after the one
/// before.
class HistoryTest : public testing::Test
{
protected:
	/// The last planned move.
	std::optional<Instant> moved;
	History history{[this](const Event& event) { m_events.push_back(event); }, {}, [this](Instant) { return moved; }};
	Instant now{std::chrono::sys_days(std::chrono::year(2026) / 11 / 21) + std::chrono::hours(9)};
	long process = 4711;
	long thread = 3;

	const Snapshot& snapshot() const { return history.snapshot(); }

	/// A message of the thread that spoke last.
	void say(const std::string& label, int number, const std::string& text, char letter = 'D')
	{
		now += std::chrono::milliseconds(100);
		LogLine line;
		line.time = now;
		line.process = process;
		line.thread = thread;
		line.label = label;
		line.number = number;
		line.letter = letter;
		line.text = text;
		history.feed(line);
	}
	void receiver(int number, const std::string& text = "", char letter = 'D')
	{
		thread = 3;
		say("CHeartReciver", number, text, letter);
	}
	void service(int number, const std::string& text = "", char letter = 'D') { say("Utill", number, text, letter); }
	void sent(const std::string& heartbeat)
	{
		thread = 2;
		say("CHeartSender", 124, "beat sent[noName]:" + heartbeat);
	}
	void checked(char role, int running)
	{
		thread = 1;
		say("ProcessChecker", 103, std::string("ProcessRuning[noName][MODE:") + role + "]: " + std::to_string(running));
	}
	void ran(const std::string& command, const std::string& output = "")
	{
		service(573, "command(" + command + ") : " + output, 'I');
	}
	void start()
	{
		thread = 0;
		say("CAgent", 25, "stop virtual ip, process");
		ran(kStop);
		ran(std::string(kKill) + " server");
		ran(std::string(kKill) + " worker");
		say("CAgent", 38, "Slave CAgent()", 'I');
		thread = 3;
	}
	void pass(bool master)
	{
		receiver(94, "Reciver while start");
		receiver(master ? 505 : 538);
	}
	void heartbeat(const std::string& text) { receiver(164, "received message: " + text); }
	/// The service is taken without trouble.
	void takeService()
	{
		service(48);
		ran(kStop);
		service(680);
		ran(kStart);
		service(490);
		service(496, "ping: 10");
		service(62);
		service(78, "\n=====\n=== process run\n=====", 'E');
	}
	/// Both nodes are slave, and this one is the configured master.
	void takeConfiguredRole()
	{
		pass(false);
		heartbeat("/process/0/2/20261121090601/0/");
		receiver(411, "szTmp[1] specialAsk[0]");
		receiver(418);
		receiver(473);
		takeService();
	}
	void becomeMaster()
	{
		start();
		takeConfiguredRole();
		checked('M', 1);
		events();
	}

	void becomeStandby()
	{
		start();
		pass(false);
		events();
	}
	void giveUpAndAsk()
	{
		becomeMaster();
		receiver(106);
		events();
	}

	/// What was reported since the last call.
	std::vector<std::string> events()
	{
		std::vector<std::string> texts;
		for (const Event& event : m_events)
		{
			texts.push_back(textOf(event));
		}
		m_events.clear();
		return texts;
	}

private:
	std::vector<Event> m_events;
};

} // namespace velarix::ctl
