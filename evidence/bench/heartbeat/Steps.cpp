#include "Steps.h"

#include <array>
#include <iterator>
#include <memory>
#include <stdexcept>

#include <Poco/Net/SocketAddress.h>
#include <Poco/Net/StreamSocket.h>
#include <Poco/Timespan.h>

#include "Aside.h"
#include "BareLibrary.h"
#include "Configuraion.h"
#include "Host.h"
#include "VelarixLog.h"
#include "WorkerAccess.h"
#include "velarix/paths.h"

namespace
{

using Lines = std::vector<bare::Line>;

constexpr char kSource[] = "CHeartSender";
constexpr char kHeartbeat[] = "/process/1/1/20240131235959/0/";
const Poco::Timespan kTimeout(2, 0);

/// A slave with its workers, its listening socket and the bare library's log. A
/// heartbeat that it sends comes to itself.
struct Node
{
	Node();

	std::vector<Poco::ProcessHandle*>* pHandles = nullptr;
	bool running = false;
	MODE mode = MODE_SLAVE;
	std::string location = "noName";
	std::string heartbeat = kHeartbeat;
	CHeartSender sender{&pHandles, &running, &mode, location};
	CHeartReciver receiver{&pHandles, &running, &mode, location};
	decltype(WorkerAccess::loopWith(nullptr)) loop;
	decltype(loop) passLoop;
	const Poco::Net::SocketAddress passAddress{"127.0.0.1", bench::kPort + 1};
	Configuraion* pConf = Configuraion::getInstance(velarix::kSettingsPath);
	bare::Log log{"/usr/velarix/log/bare.log", true};
	bare::Log quietLog{"/usr/velarix/log/bare-quiet.log", false};
	bare::File file{"/usr/velarix/log/bare-file.log"};
};

Node* g_node = nullptr;

Node::Node()
{
	auto server = std::make_unique<Poco::Net::ServerSocket>();
	server->bind(Poco::Net::SocketAddress("127.0.0.1", bench::kPort), true, false);
	server->listen(64);
	server->setReceiveTimeout(kTimeout);
	loop = WorkerAccess::loopWith(std::move(server));
	loop.timeout = kTimeout;
	passLoop.timeout = kTimeout;
	passLoop.address = passAddress;
	WorkerAccess::myStatus(receiver) = 1;
	WorkerAccess::partnerIP(sender) = "127.0.0.1";
	WorkerAccess::port(sender) = bench::kPort;
}

/// A partner that has said all when the receiver looks.
void partnerSendsTo(unsigned short port)
{
	Poco::Net::StreamSocket socket(Poco::Net::SocketAddress("127.0.0.1", port));
	socket.sendBytes(g_node->heartbeat.data(), static_cast<int>(g_node->heartbeat.size()));
	socket.close();
}

void partnerSends()
{
	partnerSendsTo(bench::kPort);
}

/// A partner that takes what was sent.
void partnerReceives()
{
	std::array<char, 256> buffer{};
	Poco::Net::StreamSocket socket = g_node->loop.server->acceptConnection();
	while (socket.receiveBytes(buffer.data(), static_cast<int>(buffer.size())) > 0)
	{
	}
}

void compose()
{
	WorkerAccess::composeMessage(g_node->sender);
}

/// As the sender's thread does it: the time-out is read for each heartbeat.
void sendHeartbeat()
{
	const Poco::Timespan timeout(g_node->pConf->getInt("AGENT.MAX_HEART_BEAT_RECEIING_TIME"), 0);
	const auto socket = WorkerAccess::connect(g_node->sender, timeout);
	WorkerAccess::sendMessage(g_node->sender, *socket);
}

void decide()
{
	g_node->receiver.ParsingReceivedMessage(g_node->heartbeat);
}

void receiveHeartbeat()
{
	WorkerAccess::serveConnection(g_node->receiver, g_node->loop);
}

void pass()
{
	WorkerAccess::iterate(g_node->receiver, g_node->passLoop);
}

void rewriteRecord()
{
	g_node->sender.saveStartedTime();
}

void lookAtCard()
{
	if (g_node->receiver.ComunicationLanCardCheck() != 1)
	{
		throw std::runtime_error("the card has no carrier");
	}
}

void logLine()
{
	velarixLog->info(kSource, 124, "beat sent[%s]:%s", g_node->location.c_str(), kHeartbeat);
}

void logEchoedLine()
{
	velarixLog->debug(kSource, 124, "beat sent[%s]:%s", g_node->location.c_str(), kHeartbeat);
}

Lines linesOfReceiving()
{
	partnerSends();
	return bare::linesOf(receiveHeartbeat);
}

Lines linesOfSending()
{
	Lines lines = bare::linesOf(sendHeartbeat);
	partnerReceives();
	return lines;
}

/// Parted at what is logged while the connection is served.
/// @throws std::logic_error when the pass was not that of a heartbeat
bare::PassLines linesOfPass(const Lines& first, const Lines& rest)
{
	constexpr Lines::difference_type kAfter = 3;
	const Lines all = bare::linesOf(pass);
	const auto served = static_cast<Lines::difference_type>(first.size() + rest.size());
	const auto begin = all.end() - kAfter - served;
	if (begin <= all.begin() || std::prev(begin)->message.getText() != "poll" ||
	    begin->message.getText() != first.front().message.getText())
	{
		throw std::logic_error("the receiver's pass was not that of a heartbeat");
	}
	return {Lines(all.begin(), begin), first, rest, Lines(all.end() - kAfter, all.end())};
}

/// The agent, and the library with the echo of the agent's lines and without.
std::vector<Contender> threeOf(void (*agent)(), const std::function<void(bare::Log&)>& library)
{
	return {{"agent", agent}, {"library", [library] { library(g_node->log); }}, {"library-quiet", [library] {
		                                                                             library(g_node->quietLog);
	                                                                             }}};
}

Step logStep(const char* name, void (*agent)())
{
	const Lines lines = bare::linesOf(agent);
	std::vector<Contender> contenders = threeOf(agent, [lines](bare::Log& log) { log.write(lines); });
	if (!lines.front().echoed)
	{
		contenders.pop_back(); // it would be the library's once more
	}
	contenders.push_back(
	    {"file-channel", [ready = bare::File::formatted(lines.front())] { g_node->file.write(ready); }});
	return {name, std::move(contenders)};
}

std::vector<Step> stepsOfReceiver()
{
	// What a heartbeat received logs is its own lines and then those of the decision.
	const Lines decided = bare::linesOf(decide);
	const Lines received = linesOfReceiving();
	const Lines first(received.begin(), received.end() - static_cast<Lines::difference_type>(decided.size()));
	const bare::PassLines passed = linesOfPass(first, decided);
	std::vector<Step> steps;
	steps.push_back(
	    {"pass", threeOf(pass, [passed](bare::Log& log) { bare::pass(g_node->passAddress, log, passed); })});
	const auto bareReceive = [first, decided](bare::Log& log)
	{ bare::receive(*g_node->loop.server, log, first, decided); };
	steps.push_back({"receive", threeOf(receiveHeartbeat, bareReceive), partnerSends});
	const auto bareDecide = [decided](bare::Log& log) { bare::decide(g_node->heartbeat, log, decided); };
	steps.push_back({"decide", threeOf(decide, bareDecide)});
	return steps;
}

} // namespace

std::vector<Step> makeSteps()
{
	static Node node;
	g_node = &node;
	aside::onListening([] { partnerSendsTo(bench::kPort + 1); });
	const Lines sent = linesOfSending();
	const Lines recorded = bare::linesOf(rewriteRecord);
	std::vector<Step> steps;
	steps.push_back({"compose", {{"agent", compose}, {"library", [] { bare::compose(velarix::kRunInfoPath); }}}});
	const auto bareSend = [sent](bare::Log& log) { bare::send(velarix::kRunInfoPath, log, sent); };
	steps.push_back({"send", threeOf(sendHeartbeat, bareSend), {}, partnerReceives});
	for (Step& step : stepsOfReceiver())
	{
		steps.push_back(std::move(step));
	}
	steps.push_back(logStep("log", logLine));
	steps.push_back(logStep("log-echoed", logEchoedLine));
	const auto bareRecord = [recorded](bare::Log& log) { bare::rewriteRecord(velarix::kRunInfoPath, log, recorded); };
	steps.push_back({"record", threeOf(rewriteRecord, bareRecord)});
	const Lines looked = bare::linesOf(lookAtCard);
	const auto bareLook = [looked](bare::Log& log) { bare::command("cat /sys/class/net/eth1/carrier", log, looked); };
	steps.push_back({"card", threeOf(lookAtCard, bareLook), {}, {}, 1});
	return steps;
}
