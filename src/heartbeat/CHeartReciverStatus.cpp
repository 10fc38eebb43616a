#include <Poco/Exception.h>

#include "CHeartReciver.h"
#include "Configuraion.h"
#include "Outside.h"
#include "Probes.h"
#include "ShellRunner.h"
#include "Utill.h"
#include "VelarixLog.h"
#include "velarix/paths.h"
#include "velarix/shared_value.h"

namespace
{

constexpr char kSource[] = "CHeartReciver";

/// @param command prints the interface's carrier file
/// @return 1 when the output holds a "1" anywhere, else 0
int carrierOf(std::string command)
{
	return shellCommand(command).find('1') != std::string::npos ? 1 : 0;
}

} // namespace

// Only the lost carrier of a master drops the virtual IP and asks the partner;
// the two ping failures leave both alone, since whoever cannot ping cannot know
// whether the partner serves already. Pinned by NetworkStatusOfAMaster.
int CHeartReciver::networkStatus()
{
	velarixLog->debug(kSource, 500, "%s", "networkStatus : start");
	if (velarix::loadShared(*m_pMode) != MODE_MASTER)
	{
		return networkStatusOfSlave();
	}
	velarixLog->debug(kSource, 505, "%s", "networkStatus : MASTER network check...");
	if (!myComunicationIPcheck())
	{
		velarixLog->debug(kSource, 508, "%s", "my comunication IP is not OK (1)");
		velarixLog->debug(kSource, 509, "%s", "master -> slave  process kill");
		velarix::storeShared(*m_pMode, MODE_SLAVE);
		Utill::processKill();
		return 0;
	}
	if (!serviceIPcheck())
	{
		velarixLog->debug(kSource, 516, "%s", "my service IP is not OK (2)");
		velarixLog->debug(kSource, 517, "%s", "master -> slave  process kill");
		velarix::storeShared(*m_pMode, MODE_SLAVE);
		Utill::processKill();
		return 0;
	}
	if (serviceLanCardCheck() == 0)
	{
		velarixLog->debug(kSource, 524, "%s", "my service LanCard is not OK (3)");
		velarixLog->debug(kSource, 525, "%s", "master -> slave  process kill");
		velarix::storeShared(*m_pMode, MODE_SLAVE);
		Utill::processKill();
		Utill::stopVirtualIP();
		askPartner();
		return 0;
	}
	return 1;
}

/// Every role but master is judged as a slave.
int CHeartReciver::networkStatusOfSlave()
{
	velarixLog->debug(kSource, 538, "%s", "networkStatus : SLAVE");
	if (partnerComunicationIPcheck() || serviceIPcheck())
	{
		return 1;
	}
	velarixLog->debug(kSource, 543, "%s", "networkStatus : SLAVE 1");
	if (!myComunicationIPcheck())
	{
		return 1;
	}
	velarixLog->debug(kSource, 548, "%s", "partner comunication IP is not OK");
	velarixLog->debug(kSource, 549, "%s", "slave -> master  process run");
	velarix::storeShared(*m_pMode, MODE_MASTER);
	Utill::voidProcessRun(false);
	return 0;
}

int CHeartReciver::processStatus()
{
	if (velarix::loadShared(*m_pMode) != MODE_MASTER)
	{
		return 1;
	}
	velarixLog->debug(kSource, 561, "%s", "processStatus : start");
	if (Utill::isProcessRunning(Utill::getObservationMode()))
	{
		velarixLog->debug(kSource, 564, "%s", "processStatus : OK");
		return 1;
	}
	velarixLog->debug(kSource, 567, "%s", "processStatus : ERROR");
	return 0;
}

int CHeartReciver::serviceLanCardCheck()
{
	return carrierOf("cat /sys/class/net/eth0/carrier");
}

int CHeartReciver::ComunicationLanCardCheck()
{
	return carrierOf("cat /sys/class/net/eth1/carrier");
}

bool CHeartReciver::isMyNetworkOK()
{
	const std::string gateway = Configuraion::getInstance(velarix::kSettingsPath)->getString("AGENT.GATEWAY_IP");
	try
	{
		return outside::ping(gateway, 10) >= 1;
	}
	catch (const Poco::Exception& exc)
	{
		velarixLog->error(kSource, 590, "my network has some problems: %s[CODE:%d]", exc.displayText().c_str(),
		                  exc.code());
		return false;
	}
}
