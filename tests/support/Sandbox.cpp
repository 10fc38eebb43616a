#include "Sandbox.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

#include <sys/mount.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace
{

constexpr char kMark[] = "VELARIX_SANDBOX";
constexpr char kFurnish[] = "mount -t tmpfs none /mnt && mkdir /mnt/upper /mnt/work && mount -t sysfs none /sys && "
                            "mount -t overlay overlay -o lowerdir=/usr,upperdir=/mnt/upper,workdir=/mnt/work /usr && "
                            "ip link set lo up";

} // namespace

namespace sandbox
{

// The shell is process 1 of the namespace, which ignores fatal signals and owes every orphan
// a wait; the program is its child.
void enter(char** argv)
{
	const std::string user = ::geteuid() == 0 ? "" : " --map-root-user";
	const std::string shell =
	    "unshare" + user + " --net --mount --pid --fork --kill-child --mount-proc sh -c '" + kFurnish;
	if (std::getenv(kMark) != nullptr || std::system((shell + "'").c_str()) != 0)
	{
		return;
	}
	::setenv(kMark, "1", 1);
	const std::string command = "exec " + shell + " && \"$0\" \"$@\"; exit $?' \"$0\" \"$@\"";
	std::vector<const char*> words{"sh", "-c", command.c_str()};
	for (; *argv != nullptr; ++argv)
	{
		words.push_back(*argv);
	}
	words.push_back(nullptr);
	::execvp("sh", const_cast<char**>(words.data()));
}

bool isOne()
{
	return std::getenv(kMark) != nullptr && std::filesystem::exists("/mnt/upper");
}

void cleanDirectories()
{
	ASSERT_TRUE(isOne());
	std::error_code error;
	std::filesystem::remove_all("/usr/velarix", error);
	for (const char* path : {"/usr/velarix/bin/ini", "/usr/velarix/bin/log", "/usr/velarix/log", "/usr/velarix/pid"})
	{
		std::filesystem::create_directories(path);
	}
}

void addInterface(const std::string& name, bool carrier)
{
	shell("ip link add " + name + " type veth peer name " + name + "-peer && ip link set " + name + " up");
	setCarrier(name, carrier);
}

void setCarrier(const std::string& name, bool carrier)
{
	shell("ip link set " + name + "-peer " + (carrier ? "up" : "down"));
}

void coverProc()
{
	ASSERT_EQ(::mount("tmpfs", "/proc", "tmpfs", 0, nullptr), 0) << std::strerror(errno);
}

void showRealProc()
{
	ASSERT_EQ(::umount2("/proc", MNT_DETACH), 0) << std::strerror(errno);
}

void shell(const std::string& command)
{
	ASSERT_EQ(std::system(command.c_str()), 0) << command;
}

void writeFile(const std::string& path, const std::string& content)
{
	std::ofstream file(path, std::ios::binary | std::ios::trunc);
	file << content << std::flush;
	ASSERT_TRUE(file.good()) << path;
}

std::string readFile(const std::string& path)
{
	std::ifstream file(path, std::ios::binary);
	std::ostringstream content;
	content << file.rdbuf();
	return content.str();
}

} // namespace sandbox
