#include "NodeLog.h"

#include "SoundSettings.h"
#include "inspect/TimeText.h"

using velarix::inspect::isoText;

namespace
{

constexpr char kStopCommand[] = "ip addr del 198.51.100.10/24 dev eth0 >/dev/null 2>&1";
constexpr char kKillCommand[] = "ip addr del 198.51.100.10/24 dev eth0 >/dev/null 2>&1; killall -q -9 server";
constexpr char kBanner[] = "\n======================================================\n"
                           "================ process run =========================\n"
                           "======================================================";

constexpr int kMain = 0;
constexpr int kChecker = 1;
constexpr int kSender = 2;
constexpr int kReceiver = 3;

} // namespace

NodeLog& NodeLog::line(Span before, int thread, const std::string& place, const std::string& text, char letter)
{
	// "2026-03-01T11:59:59.300Z" becomes "2026-03-01 11:59:59.3".
	std::string time = isoText(m_end - before).substr(0, 21);
	time[10] = ' ';
	m_text += time + " [" + std::to_string(m_process) + ":" + std::to_string(thread) + "][" + place + "] <" + letter +
	          "> " + text + "\n";
	return *this;
}

NodeLog& NodeLog::start(Span before)
{
	line(before, kMain, "CAgent:25", "stop virtual ip, process");
	line(before, kMain, "Utill:573", std::string("command(") + kStopCommand + ") : ", 'I');
	line(before, kMain, "Utill:573", std::string("command(") + kKillCommand + ") : ", 'I');
	line(before, kMain, "CAgent:38", "Slave CAgent()", 'I');
	line(before, kMain, "CAgent:179", "run time wrote:TRACE.LAST_RUN_TIME(20260301110000)[noName]");
	line(before, kMain, "ProcessChecker:69", "process list loaded[noName]");
	return line(before, kSender, "CHeartSender:37", "Sender thread run started[noName]", 'I');
}

NodeLog& NodeLog::takeService(Span before)
{
	slave(before + Span(100), "/process/0/2/20260301110000/0/");
	line(before, kReceiver, "CHeartReciver:473", "try to process run");
	line(before, kReceiver, "Utill:48", "try to start virtual ip");
	line(before, kReceiver, "Utill:573", std::string("command(") + kStopCommand + ") : ", 'I');
	line(before, kReceiver, "Utill:680", "myVirtualIP not working");
	line(before - Span(5000), kReceiver, "Utill:490", "set virtual ip...");
	line(before - Span(5000), kReceiver, "Utill:496", "ping: 5");
	line(before - Span(6000), kReceiver, "Utill:62", "try to run processes");
	return line(before - Span(6000), kReceiver, "Utill:78", kBanner, 'E');
}

NodeLog& NodeLog::giveUp(Span before)
{
	line(before, kReceiver, "CHeartReciver:561", "processStatus : start");
	line(before, kReceiver, "CHeartReciver:567", "processStatus : ERROR");
	line(before, kReceiver, "CHeartReciver:106", "stop virtual IP");
	return line(before, kReceiver, "Utill:573", std::string("command(") + kStopCommand + ") : ", 'I');
}

void NodeLog::receive(Span before, const std::string& message, const std::string& verdict)
{
	if (message.empty())
	{
		line(before, kReceiver, "CHeartReciver:146", "Reciver Connect Timed Out", 'E');
		return;
	}
	line(before, kReceiver, "CHeartReciver:150", "poll");
	line(before, kReceiver, "CHeartReciver:164", "received message: " + message);
	line(before, kReceiver, "CHeartReciver:249", "szTmp[process] szPreFix[process]");
	line(before, kReceiver, verdict.substr(0, verdict.find(' ')), verdict.substr(verdict.find(' ') + 1));
	line(before, kReceiver, "CHeartReciver:84", "delete server");
	line(before, kReceiver, "CHeartReciver:87", "Reciver while end");
	line(before, kReceiver, "CHeartReciver:88", "");
}

NodeLog& NodeLog::master(Span before, const std::string& partner)
{
	line(before, kChecker, "ProcessChecker:103", "ProcessRuning[noName][MODE:M]: 1");
	line(before, kSender, "CHeartSender:124", "beat sent[noName]:/process/1/1/20260301110000/0/");
	line(before, kReceiver, "CHeartReciver:94", "Reciver while start");
	line(before, kReceiver, "CHeartReciver:500", "networkStatus : start");
	line(before, kReceiver, "CHeartReciver:505", "networkStatus : MASTER network check...");
	line(before, kReceiver, "Utill:774", "myComunicationIPcheck : START");
	line(before, kReceiver, "Utill:783", "myComunicationIPcheck : TRUE");
	line(before, kReceiver, "Utill:797", "serviceIPcheck : START");
	line(before, kReceiver, "Utill:807", "serviceIP[198.51.100.10],serviceIPcheck : true");
	line(before, kReceiver, "CHeartReciver:96", "networkResult: 1");
	line(before, kReceiver, "CHeartReciver:561", "processStatus : start");
	line(before, kReceiver, "CHeartReciver:564", "processStatus : OK");
	line(before, kReceiver, "CHeartReciver:124", "new server");
	receive(before, partner, "CHeartReciver:278 My NetWork Status: OK   MY:MASTER PARTNER:SLAVE OK");
	return *this;
}

NodeLog& NodeLog::slave(Span before, const std::string& partner, bool asking)
{
	line(before, kChecker, "ProcessChecker:103", "ProcessRuning[noName][MODE:S]: 0");
	line(before, kSender, "CHeartSender:124",
	     std::string("beat sent[noName]:/process/0/2/20260301110000/") + (asking ? "1/" : "0/"));
	line(before, kReceiver, "CHeartReciver:94", "Reciver while start");
	line(before, kReceiver, "CHeartReciver:500", "networkStatus : start");
	line(before, kReceiver, "CHeartReciver:538", "networkStatus : SLAVE");
	line(before, kReceiver, "Utill:756", "partnerComunicationIPcheck : partnerIP: 192.0.2.2");
	line(before, kReceiver, "Utill:760", "partnerComunicationIPcheck : true");
	line(before, kReceiver, "CHeartReciver:96", "networkResult: 1");
	line(before, kReceiver, "CHeartReciver:124", "new server");
	const bool masters = partner.starts_with("/process/1/1") || partner.starts_with("/process/0/1");
	receive(before, partner,
	        masters ? "CHeartReciver:287 My NetWork Status: OK MY:SLAVE PARTNER:MASTER OK"
	                : "CHeartReciver:418 My NetWork Status: OK MY:SLAVE PARTNER:SLAVE OK");
	return *this;
}

NodeLog& NodeLog::masterFor(Span from, Span to, const std::string& partner)
{
	for (Span before = from; before >= to; before -= Span(1000))
	{
		master(before, partner);
	}
	return *this;
}

NodeLog& NodeLog::slaveFor(Span from, Span to, const std::string& partner)
{
	for (Span before = from; before >= to; before -= Span(1000))
	{
		slave(before, partner);
	}
	return *this;
}

NodeLog& NodeLog::agent(long process)
{
	m_process = process;
	return *this;
}
