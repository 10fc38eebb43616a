// What the checks ask of the real machine: files, interfaces, addresses, ports, space.
// Only the loopback and a directory of the test's own are touched.

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <thread>

#include <Poco/Net/ServerSocket.h>
#include <Poco/TemporaryFile.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include "inspect/Host.h"

using namespace velarix::inspect;
namespace fs = std::filesystem;

namespace
{

class FilesOfTheMachine : public testing::Test
{
protected:
	FilesOfTheMachine() { m_directory.createDirectory(); }

	fs::path in(const std::string& name) const { return fs::path(m_directory.path()) / name; }

private:
	/// Removed with this.
	Poco::TemporaryFile m_directory;
};

const Poco::Net::SocketAddress kAnyPort("127.0.0.1", 0);

} // namespace

TEST_F(FilesOfTheMachine, NftReadsRulesWithoutLoadingThem)
{
	std::ofstream(in("good.nft")) << "table inet velarix_test {\n}\n";
	std::ofstream(in("bad.nft")) << "table inet velarix_test {\n\tchain input { tcp dport 1 dorp; }\n}\n";
	EXPECT_EQ(host::rulesRefusal(in("good.nft")), "");
	if (::geteuid() != 0 || !fs::exists("/usr/sbin/nft"))
	{
		GTEST_SKIP() << "no nft can be had";
	}
	EXPECT_THAT(host::rulesRefusal(in("bad.nft")), testing::HasSubstr("Error: syntax error"));
}

TEST_F(FilesOfTheMachine, TellKindRightsAndOwner)
{
	std::ofstream(in("file")) << "x";
	fs::permissions(in("file"), fs::perms{0640});
	const host::FileFacts file = host::fileFacts(in("file"));
	EXPECT_EQ(file.kind, host::FileKind::regular);
	EXPECT_EQ(file.mode, 0640U);
	EXPECT_EQ(file.owner, ::geteuid());
	EXPECT_EQ(file.group, ::getegid());

	fs::create_directory(in("directory"));
	fs::permissions(in("directory"), fs::perms{01777});
	EXPECT_EQ(host::fileFacts(in("directory")).kind, host::FileKind::directory);
	EXPECT_EQ(host::fileFacts(in("directory")).mode, 01777U);

	fs::create_symlink("file", in("link"));
	EXPECT_EQ(host::fileFacts(in("link")).kind, host::FileKind::regular);
	EXPECT_EQ(host::fileFacts(in("none")).kind, host::FileKind::missing);
	EXPECT_EQ(host::fileFacts("/dev/null").kind, host::FileKind::other);
	EXPECT_FALSE(host::fileFacts(in("file")).noExec);
}

TEST_F(FilesOfTheMachine, BelowADirectoryThatMayNotBeSearchedNothingIsKnown)
{
	fs::create_directory(in("closed"));
	std::ofstream(in("closed/file")) << "x";
	fs::permissions(in("closed"), fs::perms::none);
	const uid_t former = ::geteuid();
	if (former == 0)
	{
		ASSERT_EQ(::seteuid(65534), 0);
	}
	const host::FileKind kind = host::fileFacts(in("closed/file")).kind;
	ASSERT_EQ(::seteuid(former), 0);
	fs::permissions(in("closed"), fs::perms{0700});
	EXPECT_EQ(kind, host::FileKind::notKnown);
}

TEST_F(FilesOfTheMachine, HaveSpace)
{
	EXPECT_GT(host::freeSpace(in("")).value_or(0), 0U);
	EXPECT_EQ(host::freeSpace(in("none")), std::nullopt);
	EXPECT_EQ(host::freeFiles(in("none")), std::nullopt);
	EXPECT_NE(host::freeFiles(in("")), 0U);
}

TEST(RealNetwork, TheLoopbackIsThereWithItsAddressAndNothingElse)
{
	const std::vector<host::Address> all = host::addresses();
	const auto found = std::ranges::find(all, std::string("127.0.0.1"), &host::Address::address);
	ASSERT_NE(found, all.end());
	EXPECT_EQ(std::tie(found->interface, found->label, found->prefix, found->listed), std::tuple("lo", "lo", 8, true));
	EXPECT_TRUE(host::interface("lo").present);
	EXPECT_EQ(host::interface("lo").carrier, true);
	EXPECT_FALSE(host::interface("velarix-none").present);
	EXPECT_EQ(host::interface("velarix-none").carrier, std::nullopt);
	EXPECT_FALSE(host::hasMarker("198.51.100.10"));
	EXPECT_FALSE(host::hasMarker("no address"));
}

TEST(RealNetwork, WaysAndHoldersAreThoseOfTheKernelAndTheWire)
{
	// Another host is a process with a network of its own, at the other end of a pair of interfaces.
	static constexpr char kScript[] = R"sh(set -e
		ip link set lo up
		unshare -n sleep 1000 >/dev/null 2>&1 & host=$!
		until [ "$(readlink /proc/$host/ns/net)" != "$(readlink /proc/thread-self/ns/net)" ];
	do :; done
		ip link add eth0 type veth peer name there netns $host
		ip addr add 198.51.100.1/24 dev eth0
		ip link set eth0 up
		nsenter -t $host -n sh -c "ip link set there address 52:54:00:00:00:0A up && ip addr add 198.51.100.10/24 dev there"
		echo $host
	)sh";
	std::thread(
	    []
	    {
		    if (::geteuid() != 0 || ::unshare(CLONE_NEWNET) != 0)
		    {
			    GTEST_SKIP() << "no network namespace can be had";
		    }
		    FILE* script = ::popen(kScript, "r");
		    pid_t other = 0;
		    ASSERT_EQ(std::fscanf(script, "%d", &other), 1);
		    ::pclose(script);
		    EXPECT_EQ(host::interfaceTo("198.51.100.10"), "eth0");
		    EXPECT_EQ(host::interfaceTo("198.51.100.1"), "lo");
		    EXPECT_EQ(host::interfaceTo("203.0.113.1"), std::nullopt);
		    EXPECT_EQ(host::interfaceTo("$(reboot)"), std::nullopt);
		    EXPECT_EQ(host::holderOf("198.51.100.10", "eth0"), "52:54:00:00:00:0a");
		    EXPECT_EQ(host::holderOf("198.51.100.11", "eth0"), std::nullopt);
		    ::kill(other, SIGKILL);
	    })
	    .join();
}

TEST(RealNetwork, APortIsTakenWhileSomebodyListensAndTheKernelChoosesFromTheOutgoingOnes)
{
	Poco::Net::ServerSocket listener(kAnyPort);
	const int port = listener.address().port();
	EXPECT_TRUE(host::isPortTaken("127.0.0.1", port));
	EXPECT_TRUE(host::isPortTaken("0.0.0.0", port));
	listener.close();
	EXPECT_FALSE(host::isPortTaken("127.0.0.1", port));
	EXPECT_FALSE(host::isPortTaken("no address", port));
	EXPECT_EQ(host::isOutgoingPort(port), true);
	EXPECT_EQ(host::isOutgoingPort(7), false);
}
