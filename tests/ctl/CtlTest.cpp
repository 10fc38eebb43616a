#include "CtlTest.h"

#include <Poco/String.h>

#include "ctl/Program.h"

namespace fs = std::filesystem;

CtlTest::CtlTest() : now(std::chrono::sys_days{std::chrono::year{2026} / 3 / 1} + std::chrono::hours{12})
{
	freshHost();
	std::string name = (fs::temp_directory_path() / "velarixctl-XXXXXX").string();
	if (::mkdtemp(name.data()) == nullptr)
	{
		throw std::runtime_error("no temporary directory");
	}
	m_root = name;
}

CtlTest::~CtlTest()
{
	std::error_code ignored;
	fs::remove_all(m_root, ignored);
	::umask(m_mask);
}

fs::path CtlTest::below(const std::string& absolute) const
{
	return m_root / fs::path(absolute).relative_path();
}

fs::path CtlTest::write(const std::string& absolute, const std::string& text) const
{
	fs::path path = below(absolute);
	fs::create_directories(path.parent_path());
	std::ofstream(path, std::ios::binary) << text;
	return path;
}

void CtlTest::executable(const std::string& absolute, const std::string& text) const
{
	fs::permissions(write(absolute, text), fs::perms{0755});
}

void CtlTest::makeDisk() const
{
	for (const char* tool : {"sh", "cat", "chmod", "ifconfig", "ip", "grep", "arping", "sleep", "killall", "nft"})
	{
		executable(std::string("/usr/bin/") + tool);
	}
	executable("/bin/sh");
	executable("/opt/service/bin/server");
	write("/usr/velarix/bin/log/runinfo.txt",
	      "[TRACE]\nLAST_RUN_TIME = \nMASTER_LAST_RUN_TIME = \nSLAVE_LAST_RUN_TIME = \n");
	fs::create_directories(below("/usr/velarix/pid"));
	fs::create_directories(below("/usr/velarix/log"));
}

Outcome CtlTest::run(const std::vector<std::string>& arguments) const
{
	std::ostringstream out;
	std::ostringstream err;
	velarix::ctl::Context context{.out = out,
	                              .err = err,
	                              .now = [this] { return now; },
	                              .terminal = terminal,
	                              .colour = colour,
	                              .paths = paths,
	                              .in = in};
	const int code = velarix::ctl::run(arguments, context);
	return {code, out.str(), err.str()};
}

Outcome CtlTest::runBelow(std::vector<std::string> arguments) const
{
	arguments.insert(arguments.end(), {"--root", m_root.string()});
	return run(arguments);
}

std::string CtlTest::anonymous(std::string text) const
{
	return Poco::replaceInPlace(text, m_root.string(), std::string());
}

std::string readFile(const fs::path& path)
{
	std::ifstream file(path, std::ios::binary);
	if (!file)
	{
		throw std::runtime_error("cannot read " + path.string());
	}
	std::ostringstream text;
	text << file.rdbuf();
	return text.str();
}

long memory(const std::string& name)
{
	const std::string status = readFile("/proc/self/status");
	return std::stol(status.substr(status.find(name) + name.size()));
}

std::set<std::string> allBetween(const std::string& text, const std::string& before, const std::string& after)
{
	std::set<std::string> found;
	for (std::size_t at = text.find(before); at != std::string::npos; at = text.find(before, at + 1))
	{
		const std::size_t begin = at + before.size();
		found.insert(text.substr(begin, text.find(after, begin) - begin));
	}
	return found;
}

void expectGolden(const std::string& name, const std::string& text)
{
	const fs::path path = fs::path(VELARIX_CTL_GOLDEN) / name;
	if (const char* how = std::getenv("VELARIX_GOLDEN"); how != nullptr && std::string(how) == "write")
	{
		std::ofstream(path, std::ios::binary) << text;
		ADD_FAILURE() << "written: " << path;
		return;
	}
	ASSERT_TRUE(fs::exists(path)) << path;
	EXPECT_EQ(readFile(path), text) << path;
}
