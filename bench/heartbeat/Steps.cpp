#include "Steps.h"

#include <array>
#include <memory>
#include <stdexcept>

#include <Poco/Exception.h>
#include <Poco/File.h>
#include <Poco/Net/SocketAddress.h>
#include <Poco/Net/StreamSocket.h>
#include <Poco/Timespan.h>

#include "BareLibrary.h"
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
	bare::Log log{"/usr/velarix/log/bare.log"};
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
	WorkerAccess::partnerIP(sender) = "127.0.0.1";
	WorkerAccess::port(sender) = bench::kPort;
}

/// A partner that has said all when the receiver looks.
void partnerSends()
{
	Poco::Net::StreamSocket socket(Poco::Net::SocketAddress("127.0.0.1", bench::kPort));
	socket.sendBytes(g_node->heartbeat.data(), static_cast<int>(g_node->heartbeat.size()));
	socket.close();
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

void sendHeartbeat()
{
	const auto socket = WorkerAccess::connect(g_node->sender, kTimeout);
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

/// The file's type used to be asked for each time before the record was read.
void lookAtType()
{
	if (Poco::File(velarix::kRunInfoPath).isDirectory())
	{
		throw Poco::OpenFileException(velarix::kRunInfoPath);
	}
}

void composeEarlier()
{
	lookAtType();
	compose();
}

void rewriteRecordEarlier()
{
	lookAtType();
	rewriteRecord();
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

Step logStep(const char* name, void (*agent)())
{
	return {name, agent, [lines = bare::linesOf(agent)] { g_node->log.write(lines); }, {}, {}};
}

} // namespace

std::vector<Step> makeSteps()
{
	static Node node;
	g_node = &node;
	// What a heartbeat received logs is its own lines and then those of the decision.
	const Lines decided = bare::linesOf(decide);
	const Lines received = linesOfReceiving();
	const Lines first(received.begin(), received.end() - static_cast<Lines::difference_type>(decided.size()));
	const Lines sent = linesOfSending();
	const Lines recorded = bare::linesOf(rewriteRecord);
	std::vector<Step> steps;
	steps.push_back({"compose", compose, [] { bare::compose(velarix::kRunInfoPath); }, {}, {}, 16, composeEarlier});
	const auto bareSend = [sent] { bare::send(velarix::kRunInfoPath, g_node->log, sent); };
	steps.push_back({"send", sendHeartbeat, bareSend, {}, partnerReceives});
	const auto bareReceive = [first, decided] { bare::receive(*g_node->loop.server, g_node->log, first, decided); };
	steps.push_back({"receive", receiveHeartbeat, bareReceive, partnerSends, {}});
	const auto bareDecide = [decided] { bare::decide(g_node->heartbeat, g_node->log, decided); };
	steps.push_back({"decide", decide, bareDecide, {}, {}});
	steps.push_back(logStep("log", logLine));
	steps.push_back(logStep("log-echoed", logEchoedLine));
	const auto bareRecord = [recorded] { bare::rewriteRecord(velarix::kRunInfoPath, g_node->log, recorded); };
	steps.push_back({"record", rewriteRecord, bareRecord, {}, {}, 16, rewriteRecordEarlier});
	const Lines looked = bare::linesOf(lookAtCard);
	const auto bareLook = [looked] { bare::command("cat /sys/class/net/eth1/carrier", g_node->log, looked); };
	steps.push_back({"card", lookAtCard, bareLook, {}, {}, 1});
	return steps;
}
