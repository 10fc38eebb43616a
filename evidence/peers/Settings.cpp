#include "evidence/peers/Settings.h"

#include <algorithm>
#include <array>
#include <sstream>

#include "lab/core/Plan.h"

namespace velarix::evidence::peers
{

namespace
{

const std::string address = plan::virtualAddress;
const std::string addressAndLength = address + "/" + std::to_string(plan::prefixLength);
const std::string card = plan::serviceCard;

/// Node a is the preferred one, where nobody has the address yet.
constexpr int priorityOf(HostId node)
{
	return node == HostId::a ? 150 : 100;
}

constexpr int skewOf(HostId node)
{
	return node == HostId::a ? 0 : 50;
}

std::string pathOf(const char* name)
{
	return std::string(peerDirectory) + "/" + name;
}

std::string inSeconds(int centiseconds)
{
	std::ostringstream text;
	text << centiseconds / 100.0;
	return text.str();
}

/// Fetches the page as a client would. The program that runs it gives it a time.
std::string checkScript()
{
	return "#!/bin/bash\n"
	       "exec 3<>/dev/tcp/127.0.0.1/" +
	       std::to_string(plan::servicePort) +
	       " || exit 1\n"
	       "printf 'GET / HTTP/1.0\\r\\n\\r\\n' >&3\n"
	       "IFS= read -r line <&3\n"
	       "[[ $line == *' 200 '* ]]\n";
}

/// Announced for as long as it is held, so that neighbours learn of it after a
/// repaired partition too.
std::string upScript()
{
	return "#!/bin/sh\n"
	       "ip addr add " +
	       addressAndLength + " dev " + card + "\n(while ip -4 -o addr show dev " + card + " | grep -q " + address +
	       "/; do arping -q -A -c 1 -w 1 -I " + card + " " + address + "; sleep 4; done) >/dev/null 2>&1 &\n";
}

std::string downScript()
{
	return "#!/bin/sh\n"
	       "ip addr del " +
	       addressAndLength + " dev " + card + " 2>/dev/null\nexit 0\n";
}

std::string keepalivedSettings(HostId node, const Times& times)
{
	std::ostringstream text;
	text << "global_defs {\n"
	     << "  router_id node_" << nameOf(node) << "\n"
	     << "  script_user root\n"
	     << "  enable_script_security\n"
	     << "  vrrp_version 3\n"
	     << "  vrrp_garp_master_refresh 5\n"
	     << "}\n\n"
	     << "vrrp_script service {\n"
	     << "  script \"" << pathOf("check") << "\"\n"
	     << "  interval " << times.checkSeconds << "\n"
	     << "  timeout 1\n"
	     << "  fall " << times.checkFailures << "\n"
	     << "  rise " << times.checkFailures << "\n"
	     << "}\n\n"
	     << "vrrp_instance pair {\n"
	     << "  state BACKUP\n"
	     << "  nopreempt\n"
	     << "  interface " << card << "\n"
	     << "  virtual_router_id 51\n"
	     << "  priority " << priorityOf(node) << "\n"
	     << "  advert_int " << inSeconds(times.advertCentiseconds) << "\n"
	     << "  track_interface {\n    " << plan::communicationCard << "\n  }\n"
	     << "  track_script {\n    service\n  }\n"
	     << "  virtual_ipaddress {\n    " << addressAndLength << " dev " << card << "\n  }\n"
	     << "}\n";
	return text.str();
}

// What follows is a list of its own, not taken from the settings above: a word that
// is new there has to be looked at here.

/// The options of the commands; those of ucarp have values.
constexpr std::array<const char*, 6> keepalivedOptions{"--dont-fork", "--log-console",  "--no-syslog",
                                                       "--vrrp",      "--release-vips", "--use-file"};
constexpr std::array<const char*, 11> ucarpOptions{"--interface", "--srcip",      "--vhid",    "--pass",
                                                   "--addr",      "--advbase",    "--advskew", "--deadratio",
                                                   "--upscript",  "--downscript", "--shutdown"};

/// Every word of the settings file but for numbers.
constexpr std::array<const char*, 35> keepalivedWords{"{",
                                                      "}",
                                                      "global_defs",
                                                      "router_id",
                                                      "node_a",
                                                      "node_b",
                                                      "script_user",
                                                      "root",
                                                      "enable_script_security",
                                                      "vrrp_version",
                                                      "vrrp_garp_master_refresh",
                                                      "vrrp_script",
                                                      "service",
                                                      "script",
                                                      "\"/usr/velarix-peers/check\"",
                                                      "interval",
                                                      "timeout",
                                                      "fall",
                                                      "rise",
                                                      "vrrp_instance",
                                                      "pair",
                                                      "state",
                                                      "BACKUP",
                                                      "nopreempt",
                                                      "interface",
                                                      "virtual_router_id",
                                                      "priority",
                                                      "advert_int",
                                                      "track_interface",
                                                      "track_script",
                                                      "virtual_ipaddress",
                                                      "192.0.2.100/24",
                                                      "dev",
                                                      "eth0",
                                                      "eth1"};

template <std::size_t size> bool oneOf(const std::string& word, const std::array<const char*, size>& words)
{
	return std::any_of(words.begin(), words.end(), [&](const char* known) { return word == known; });
}

bool isNumber(const std::string& word)
{
	return word.find_first_not_of("0123456789.") == std::string::npos;
}

/// @return the first word that is not allowed; empty: there is none
std::optional<std::string> strangeOption(const std::vector<std::string>& command)
{
	const bool keepalived = command.front() == nameOf(Program::keepalived);
	for (auto word = command.begin() + 1; word != command.end(); ++word)
	{
		const std::size_t equals = word->find('=');
		const std::string option = word->substr(0, equals);
		const std::string value = equals == std::string::npos ? std::string() : word->substr(equals + 1);
		const bool allowed = keepalived ? oneOf(*word, keepalivedOptions) || *word == pathOf("keepalived.conf")
		                                : oneOf(option, ucarpOptions);
		const bool script = option == "--upscript" || option == "--downscript";
		const bool own = !script || value == pathOf("up") || value == pathOf("down");
		if (!allowed || !own)
		{
			return *word;
		}
	}
	return std::nullopt;
}

} // namespace

Millis Times::silence(Program program) const
{
	const int times = program == Program::keepalived ? 3 : deadRatio;
	return Millis(10) * advertCentiseconds * times;
}

const char* nameOf(Program program)
{
	return program == Program::keepalived ? "keepalived" : "ucarp";
}

const std::vector<Settings>& allPeers()
{
	// ucarp counts in whole seconds: with an interval of nothing but the skew, a
	// node's own patience would be as short as the other's interval.
	static const std::vector<Settings> peers{
	    {Program::keepalived, "defaults", {}},
	    {Program::keepalived, "short", {10, 1, 1, 3}},
	    {Program::ucarp, "defaults", {}},
	    {Program::ucarp, "short", {100, 1, 1, 2}},
	};
	return peers;
}

const Settings& settingsNamed(const std::string& program, const std::string& name)
{
	for (const Settings& settings : allPeers())
	{
		if (program == nameOf(settings.program) && name == settings.name)
		{
			return settings;
		}
	}
	throw LabError("there is no peer " + program + " with the settings " + name);
}

std::string toText(const Settings& settings)
{
	std::string text = std::string(nameOf(settings.program)) + " (" + settings.name + "): advertisement every " +
	                   inSeconds(settings.times.advertCentiseconds) + " s, dead after " +
	                   secondsText(settings.times.silence(settings.program)) + " of silence and the skew";
	if (settings.program == Program::keepalived)
	{
		text += ", program checked every " + std::to_string(settings.times.checkSeconds) + " s, dead after " +
		        std::to_string(settings.times.checkFailures) + " failed check" +
		        (settings.times.checkFailures == 1 ? "" : "s");
	}
	return text;
}

std::vector<File> filesFor(HostId node, const Settings& settings)
{
	if (settings.program == Program::keepalived)
	{
		return {{"keepalived.conf", keepalivedSettings(node, settings.times)}, {"check", checkScript(), true}};
	}
	return {{"up", upScript(), true}, {"down", downScript(), true}};
}

std::vector<std::string> commandFor(HostId node, const Settings& settings)
{
	if (settings.program == Program::keepalived)
	{
		return {"keepalived", "--dont-fork",    "--log-console", "--no-syslog",
		        "--vrrp",     "--release-vips", "--use-file",    pathOf("keepalived.conf")};
	}
	return {"ucarp",
	        "--interface=" + card,
	        std::string("--srcip=") + plan::addressOf(node, Network::service),
	        "--vhid=51",
	        "--pass=pair",
	        "--addr=" + address,
	        "--advbase=" + std::to_string(settings.times.advertCentiseconds / 100),
	        "--advskew=" + std::to_string(skewOf(node)),
	        "--deadratio=" + std::to_string(settings.times.deadRatio),
	        "--upscript=" + pathOf("up"),
	        "--downscript=" + pathOf("down"),
	        "--shutdown"};
}

std::optional<std::string> escapeIn(const std::vector<std::string>& command, const std::vector<File>& files)
{
	const std::string program = command.empty() ? std::string() : command.front();
	if (program != nameOf(Program::keepalived) && program != nameOf(Program::ucarp))
	{
		return "the program \"" + program + "\"";
	}
	if (const std::optional<std::string> word = strangeOption(command))
	{
		return "the word \"" + *word + "\" of the command";
	}
	if (program == nameOf(Program::keepalived) && std::find(command.begin(), command.end(), "--vrrp") == command.end())
	{
		return "a command without --vrrp: the other parts load modules";
	}
	for (const File& file : files)
	{
		std::istringstream text(file.executable ? std::string() : file.text);
		for (std::string word; text >> word;)
		{
			if (!isNumber(word) && !oneOf(word, keepalivedWords))
			{
				return "the word \"" + word + "\" in " + file.name;
			}
		}
	}
	return std::nullopt;
}

} // namespace velarix::evidence::peers
