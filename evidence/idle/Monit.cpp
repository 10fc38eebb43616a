#include "evidence/idle/Monit.h"

#include <filesystem>

#include <sys/stat.h>
#include <unistd.h>

#include "evidence/peers/Pair.h"
#include "lab/core/Files.h"
#include "lab/core/Plan.h"
#include "lab/core/Wait.h"

namespace velarix::evidence::idle
{

namespace
{

constexpr Millis startLimit{10000};
constexpr const char* settingsPath = "/run/monitrc";

} // namespace

std::string monitSettings(int seconds)
{
	const std::string gateway = plan::addressOf(HostId::gateway, Network::communication);
	return "set daemon " + std::to_string(seconds) + "\nset log " + monitLog +
	       "\nset idfile /run/monit.id\nset statefile /run/monit.state\nset pidfile /run/monit.pid\n"
	       "check process service matching \"" +
	       plan::serviceProgramName +
	       "\"\n"
	       "check host gateway with address " +
	       gateway +
	       "\n  if failed ping then alert\n"
	       "check network service_card with interface " +
	       plan::serviceCard +
	       "\n  if failed link then alert\n"
	       "check network communication_card with interface " +
	       plan::communicationCard + "\n  if failed link then alert\n";
}

void requireMonit()
{
	if (::access("/usr/bin/monit", X_OK) != 0)
	{
		throw LabError("monit is missing on this machine (Debian package monit, or: scripts/install-deps peers)");
	}
}

void startMonit(Lab& lab, HostId node, int seconds)
{
	const Host& host = lab.node(node).host();
	peers::requireOwnNamespaces(host.pid());
	const std::filesystem::path settings = lab.node(node).file(settingsPath);
	writeFile(settings, monitSettings(seconds));
	if (::chmod(settings.c_str(), 0600) != 0)
	{
		throwErrno("cannot close the settings of monit to others");
	}
	const std::string command =
	    std::string("(exec >/run/monit.out 2>&1 </dev/null; exec monit -I -c ") + settingsPath + " &)";
	runOrThrow({{"sh", "-c", command}, {}, host.inside()});
	const auto runs = [&] { return !processesNamed(host.pid(), "monit").empty(); };
	const bool logs = waitFor([&] { return runs() && !contentIfAny(lab.node(node).file(monitLog)).empty(); },
	                          startLimit, "monit to run");
	if (!logs)
	{
		throw LabError("monit did not start on " + nodeText(node) + ": " +
		               contentIfAny(lab.node(node).file("/run/monit.out")));
	}
}

} // namespace velarix::evidence::idle
