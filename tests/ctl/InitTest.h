/// What the tests of init share: the answers of the sample, and where the files go.
#pragma once

#include "CheckTest.h"
#include "inspect/SettingsFile.h"

inline constexpr char kService[] = "--service=web=/usr/sbin/nginx -g \"daemon off;\"";

class Init : public CheckTest
{
protected:
	Init()
	{
		executable("/usr/libexec/velarix-ha/keeper");
		executable("/usr/sbin/nginx");
	}

	/// The answers of the sample, and where the files go.
	std::vector<std::string> arguments(const std::vector<std::string>& more = {},
	                                   const std::string& what = kService) const
	{
		std::vector<std::string> result{"init",
		                                "--address-a=192.0.2.1",
		                                "--address-b=192.0.2.2",
		                                "--gateway=192.0.2.254",
		                                "--virtual-ip=198.51.100.10/24",
		                                what,
		                                "--output=" + output().string()};
		result.insert(result.end(), more.begin(), more.end());
		return result;
	}

	std::filesystem::path output() const { return below("/pair"); }
	std::filesystem::path file(const std::string& name) const { return output() / name; }
	velarix::inspect::SettingsFile settingsOf(const std::string& node) const
	{
		return velarix::inspect::SettingsFile::load(file(node + "/config.ini"));
	}

	Outcome answering(const std::string& answers)
	{
		std::istringstream input(answers);
		in = &input;
		return run({"init", "--output=" + output().string()});
	}
};

inline mode_t rightsOf(const std::filesystem::path& path)
{
	struct stat status = {};
	EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
	return status.st_mode & 07777U;
}
