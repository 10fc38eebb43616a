#include "ControlSettings.h"

#include <algorithm>
#include <array>
#include <sstream>

#include "Plan.h"

namespace velarix::lab
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
	return std::string(controlDirectory) + "/" + name;
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
/// healed partition too.
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

std::string keepalivedSettings(HostId node, const ControlTimes& times)
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

/// Words that make keepalived enter a namespace, load modules or set what holds
/// for the whole machine.
constexpr std::array<const char*, 7> badWords{
    "net_namespace", "net_namespace_ipvs", "namespace_with_ipsets", "linkbeat_use_polling",
    "include",       "virtual_server",     "lvs_sync_daemon"};
constexpr std::array<const char*, 11> badOptions{"-s", "--namespace",         "-m", "--core-dump",
                                                 "-M", "--core-dump-pattern", "-x", "--snmp",
                                                 "-A", "--snmp-agent-socket", "-C"};

bool isBadOption(const std::string& word)
{
	const std::string option = word.starts_with("--") ? word.substr(0, word.find('=')) : word.substr(0, 2);
	return std::find(badOptions.begin(), badOptions.end(), option) != badOptions.end();
}

} // namespace

Millis ControlTimes::silence(ControlProgram program) const
{
	const int times = program == ControlProgram::keepalived ? 3 : deadRatio;
	return Millis(10) * advertCentiseconds * times;
}

const char* nameOf(ControlProgram program)
{
	return program == ControlProgram::keepalived ? "keepalived" : "ucarp";
}

const std::vector<ControlSettings>& allControls()
{
	// ucarp counts in whole seconds: with an interval of nothing but the skew, a
	// node's own patience would be as short as the other's interval.
	static const std::vector<ControlSettings> controls{
	    {ControlProgram::keepalived, "defaults", {}},
	    {ControlProgram::keepalived, "short", {10, 1, 1, 3}},
	    {ControlProgram::ucarp, "defaults", {}},
	    {ControlProgram::ucarp, "short", {100, 1, 1, 2}},
	};
	return controls;
}

const ControlSettings& settingsNamed(const std::string& program, const std::string& name)
{
	for (const ControlSettings& settings : allControls())
	{
		if (program == nameOf(settings.program) && name == settings.name)
		{
			return settings;
		}
	}
	throw LabError("there is no control " + program + " with the settings " + name);
}

std::string toText(const ControlSettings& settings)
{
	std::string text = std::string(nameOf(settings.program)) + " (" + settings.name + "): advertisement every " +
	                   inSeconds(settings.times.advertCentiseconds) + " s, dead after " +
	                   secondsText(settings.times.silence(settings.program)) + " of silence and the skew";
	if (settings.program == ControlProgram::keepalived)
	{
		text += ", program checked every " + std::to_string(settings.times.checkSeconds) + " s, dead after " +
		        std::to_string(settings.times.checkFailures) + " failed check" +
		        (settings.times.checkFailures == 1 ? "" : "s");
	}
	return text;
}

std::vector<ControlFile> controlFiles(HostId node, const ControlSettings& settings)
{
	if (settings.program == ControlProgram::keepalived)
	{
		return {{"keepalived.conf", keepalivedSettings(node, settings.times)}, {"check", checkScript(), true}};
	}
	return {{"up", upScript(), true}, {"down", downScript(), true}};
}

std::vector<std::string> controlCommand(HostId node, const ControlSettings& settings)
{
	if (settings.program == ControlProgram::keepalived)
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

std::optional<std::string> escapeIn(const std::vector<std::string>& command, const std::vector<ControlFile>& files)
{
	if (command.empty() || command.front() == nameOf(ControlProgram::ucarp))
	{
		return std::nullopt;
	}
	const auto bad = std::find_if(command.begin() + 1, command.end(), isBadOption);
	if (bad != command.end())
	{
		return "the option " + *bad;
	}
	for (const ControlFile& file : files)
	{
		std::istringstream text(file.executable ? std::string() : file.text);
		for (std::string word; text >> word;)
		{
			if (std::any_of(badWords.begin(), badWords.end(), [&](const char* known) { return word == known; }))
			{
				return "\"" + word + "\" in " + file.name;
			}
		}
	}
	return std::nullopt;
}

} // namespace velarix::lab
