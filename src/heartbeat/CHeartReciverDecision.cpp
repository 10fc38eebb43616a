#include <Poco/Exception.h>

#include "CHeartReciver.h"
#include "Configuraion.h"
#include "HeartbeatMessage.h"
#include "Utill.h"
#include "VelarixLog.h"
#include "velarix/paths.h"
#include "velarix/shared_value.h"

namespace
{

constexpr char kSource[] = "CHeartReciver";
/// So many heartbeats pass while an ask is pending: what follows happens at the fourth.
/// (kCountedSilences of CHeartReciver.cpp acts at the third silence.)
constexpr std::int32_t kCountedHeartbeats = 3;

} // namespace

void CHeartReciver::ParsingReceivedMessage(const std::string& message)
{
	HeartbeatMessage heartbeat;
	try
	{
		heartbeat = splitHeartbeat(message);
	}
	catch (const Poco::Exception& exc)
	{
		velarixLog->error(kSource, 246, "%s", exc.displayText().c_str());
		return;
	}
	velarixLog->debug(kSource, 249, "szTmp[%s] szPreFix[%s]", kHeartbeatPrefix, heartbeat.prefix.c_str());
	if (!heartbeat.prefix.starts_with(kHeartbeatPrefix))
	{
		velarixLog->debug(kSource, 252, "preFix unknown: [%s]", heartbeat.prefix.c_str());
		return;
	}
	const MODE partnerMode = heartbeat.role == kHeartbeatMaster ? MODE_MASTER : MODE_SLAVE;
	if (m_myStatus == 1)
	{
		decideWhileOK(partnerMode, heartbeat.specialAsk);
	}
	else
	{
		decideWhileNotOK(partnerMode, heartbeat.specialAsk);
	}
}

// Own status OK:
//   own role  partner   action
//   master    slave     none
//   master    master    resetProcess
//   slave     master    status OK, answer check
//   slave     slave     ask check
//   other     any       none
void CHeartReciver::decideWhileOK(MODE partnerMode, const std::string& specialAsk)
{
	const MODE mode = velarix::loadShared(*m_pMode);
	if (mode == MODE_MASTER && partnerMode == MODE_SLAVE)
	{
		velarixLog->debug(kSource, 278, "%s", "My NetWork Status: OK   MY:MASTER PARTNER:SLAVE OK");
	}
	else if (mode == MODE_MASTER && partnerMode == MODE_MASTER)
	{
		velarixLog->debug(kSource, 282, "%s", "My NetWork Status: OK MY:MASTER PARTNER:MASTER OK");
		resetProcess();
	}
	else if (mode == MODE_SLAVE && partnerMode == MODE_MASTER)
	{
		velarixLog->debug(kSource, 287, "%s", "My NetWork Status: OK MY:SLAVE PARTNER:MASTER OK");
		m_myStatus = 1;
		answerCheckOK(specialAsk);
	}
	else if (mode == MODE_SLAVE && partnerMode == MODE_SLAVE)
	{
		askCheckOK(specialAsk);
	}
	else
	{
		velarixLog->debug(kSource, 297, "%s", "My NetWork Status: OK UNKNOW");
	}
}

// Own status NOT OK:
//   own role  partner   action
//   master    slave     status OK while the programs run, else an error line
//   master    master    resetProcess
//   slave     master    status OK, answer check
//   slave     slave     ask check
//   other     any       none
void CHeartReciver::decideWhileNotOK(MODE partnerMode, const std::string& specialAsk)
{
	const MODE mode = velarix::loadShared(*m_pMode);
	if (mode == MODE_MASTER && partnerMode == MODE_SLAVE)
	{
		if (Utill::isProcessRunning(Utill::getObservationMode()))
		{
			m_myStatus = 1;
		}
		else
		{
			velarixLog->error(kSource, 319, "m_myStatus[%d]:%s", m_myStatus, "ERRRRREEEEEEERRRRRRR");
		}
	}
	else if (mode == MODE_MASTER && partnerMode == MODE_MASTER)
	{
		velarixLog->debug(kSource, 324, "%s", "My NetWork Status: NOT OK MY:MASTER PARTNER:MASTER RESET");
		resetProcess();
	}
	else if (mode == MODE_SLAVE && partnerMode == MODE_MASTER)
	{
		velarixLog->debug(kSource, 329, "%s", "My NetWork Status: NOT OK MY:SLAVE PARTNER:MASTER OK");
		m_myStatus = 1;
		answerCheckNotOK(specialAsk);
	}
	else if (mode == MODE_SLAVE && partnerMode == MODE_SLAVE)
	{
		askCheckNotOK(specialAsk);
	}
	else
	{
		velarixLog->debug(kSource, 339, "%s", "My NetWork Status: NOT OK UNKNOW");
	}
}

// The label names the process-running field while the value is the special-ask
// field; operators' log filters know the line in this form. The answer and ask
// checks of the two halves differ on purpose: with the status NOT OK a master's
// heartbeat without an ask leaves a pending ask alone, and the texts name the
// partner as slave. Pinned by AnswerCheck and AskCheck.
void CHeartReciver::answerCheckOK(const std::string& specialAsk)
{
	velarixLog->debug(kSource, 350, "szTmp[%s] szPartnerProcessRunning[%s]", kHeartbeatAsking, specialAsk.c_str());
	if (!specialAsk.starts_with(kHeartbeatAsking))
	{
		velarix::storeShared(g_specialAsking, std::int32_t{0});
		return;
	}
	if (velarix::loadShared(g_specialAsking) != 1)
	{
		return;
	}
	++m_specialAskCount;
	if (m_specialAskCount <= kCountedHeartbeats)
	{
		velarixLog->debug(kSource, 363,
		                  "My NetWork Status: OK MY:SLAVE PARTNER:MASTER Special ask <-- answer wait [%d/3]",
		                  m_specialAskCount);
		return;
	}
	velarixLog->debug(kSource, 368, "My NetWork Status: OK MY:SLAVE PARTNER:MASTER Special ask <-- answer OK [%d/4]",
	                  m_specialAskCount);
	m_specialAskCount = 0;
	velarix::storeShared(g_specialAsking, std::int32_t{0});
}

void CHeartReciver::answerCheckNotOK(const std::string& specialAsk)
{
	velarixLog->debug(kSource, 376, "szTmp[%s] szPartnerProcessRunning[%s]", kHeartbeatAsking, specialAsk.c_str());
	if (!specialAsk.starts_with(kHeartbeatAsking) || velarix::loadShared(g_specialAsking) != 1)
	{
		return;
	}
	++m_specialAskCount;
	if (m_specialAskCount <= kCountedHeartbeats)
	{
		velarixLog->debug(kSource, 384,
		                  "My NetWork Status: NOT OK MY:SLAVE PARTNER:SLAVE Special ask <-- answer wait [%d/3]",
		                  m_specialAskCount);
		return;
	}
	velarixLog->debug(kSource, 389, "My NetWork Status: NOT OK MY:SLAVE PARTNER:SLAVE Special ask <-- answer OK [%d/3]",
	                  m_specialAskCount);
	m_specialAskCount = 0;
	velarix::storeShared(g_specialAsking, std::int32_t{0});
}

void CHeartReciver::askCheckOK(const std::string& specialAsk)
{
	if (velarix::loadShared(g_specialAsking) == 1)
	{
		++m_specialAskCount;
		if (m_specialAskCount <= kCountedHeartbeats)
		{
			velarixLog->debug(kSource, 403,
			                  "My NetWork Status: OK  MY:SLAVE PARTNER:SLAVE Special ask <-- waiting result [%d/3]",
			                  m_specialAskCount);
			return;
		}
		m_specialAskCount = 0;
		velarix::storeShared(g_specialAsking, std::int32_t{0});
	}
	velarixLog->debug(kSource, 411, "szTmp[%s] specialAsk[%s]", kHeartbeatAsking, specialAsk.c_str());
	if (specialAsk.starts_with(kHeartbeatAsking))
	{
		velarixLog->debug(kSource, 414, "%s", "special ask: slave -> master");
		becomeMasterOnAsk();
		return;
	}
	velarixLog->debug(kSource, 418, "%s", "My NetWork Status: OK MY:SLAVE PARTNER:SLAVE OK");
	resetProcess();
}

void CHeartReciver::askCheckNotOK(const std::string& specialAsk)
{
	if (velarix::loadShared(g_specialAsking) == 1)
	{
		++m_specialAskCount;
		if (m_specialAskCount <= kCountedHeartbeats)
		{
			velarixLog->debug(kSource, 429,
			                  "My NetWork Status: NOT OK MY:SLAVE PARTNER:SLAVE Special ask <-- answer wait [%d/3]",
			                  m_specialAskCount);
			return;
		}
		velarixLog->debug(kSource, 434,
		                  "My NetWork Status: NOT OK MY:SLAVE PARTNER:SLAVE Special ask <-- answer OK [%d/3]",
		                  m_specialAskCount);
		m_specialAskCount = 0;
		velarix::storeShared(g_specialAsking, std::int32_t{0});
	}
	velarixLog->debug(kSource, 440, "szTmp[%s] specialAsk[%s]", kHeartbeatAsking, specialAsk.c_str());
	if (specialAsk.starts_with(kHeartbeatAsking))
	{
		velarixLog->debug(kSource, 443, "%s", "special ask: slave -> master");
		becomeMasterOnAsk();
		return;
	}
	velarixLog->debug(kSource, 447, "%s", "My NetWork Status: NOT OK MY:SLAVE PARTNER:SLAVE Reset");
	resetProcess();
}

void CHeartReciver::becomeMasterOnAsk()
{
	velarix::storeShared(*m_pMode, MODE_MASTER);
	Utill::startVirtualIP(m_pMode);
	Utill::voidProcessRun(false);
}

// A configured master restarts its programs on every reset; a configured slave
// without running programs leaves the virtual IP untouched.
void CHeartReciver::resetProcess()
{
	Configuraion* pConf = Configuraion::getInstance(velarix::kSettingsPath);
	const int configuredMode = pConf->getInt("AGENT.MODE");
	const OBSERVATION_MODE observationMode = Utill::getObservationMode();
	if (configuredMode == 1)
	{
		velarix::storeShared(*m_pMode, MODE_MASTER);
		if (Utill::isProcessRunning(observationMode))
		{
			velarixLog->debug(kSource, 470, "%s", "MASTER kill");
			Utill::processKill();
		}
		velarixLog->debug(kSource, 473, "%s", "try to process run");
		Utill::voidProcessRun(false);
		return;
	}
	velarix::storeShared(*m_pMode, MODE_SLAVE);
	if (Utill::isProcessRunning(observationMode))
	{
		velarixLog->debug(kSource, 480, "%s", "SLAVE kill");
		Utill::processKill();
		Utill::stopVirtualIP();
	}
}
