/// An attack that goes on, from the lab's third host: lab/guest/attacker.py in its network.
#pragma once

#include <cstdint>
#include <string>

#include "lab/campaigns/hostile/Attacks.h"
#include "lab/campaigns/hostile/Run.h"
#include "lab/core/Lab.h"

namespace velarix::lab::hostile
{

struct AttackerPlan
{
	std::string attack;
	std::string detail{}; ///< of forged heartbeats: the fields; of "replay": whose heartbeat
	HostId target = HostId::a;
	std::uint64_t seed = 1;
	long count = 10000;  ///< random messages; resets a tenth, messages that are waited for a twentieth of it
	bool tunnel = false; ///< the heartbeats go through one
	bool beside = false; ///< ... and its target is attacked at its address on the communication network
};

class Attacker
{
public:
	/// Begins. `lab` must outlive the attacker.
	/// @throws LabError when there is no such attack
	Attacker(Lab& lab, const AttackerPlan& plan);
	/// Ends it.
	~Attacker();
	Attacker(const Attacker&) = delete;
	Attacker& operator=(const Attacker&) = delete;

	/// Waits until the receiver serves its connection, or it has at least begun.
	/// @param mitigated  the receiver will not serve it
	/// @throws LabError when it does not come to that
	void awaitHold(bool mitigated);
	/// Waits for an attack that ends by itself.
	void awaitEnd();
	/// Ends the attack and gives the taken address back.
	/// @throws LabError when the attack failed by itself
	void end();

	bool lasting() const { return m_attack.lasting; }
	/// What it has done so far.
	AttackTally tally() const;

private:
	Lab& m_lab;
	const AttackInfo& m_attack;
	HostId m_target;
	std::string m_undo; ///< of what was done to the host
	Descriptor m_said;  ///< a file in memory: lines of JSON
	pid_t m_process = -1;
	int m_status = 0;

	/// Its last words that are whole; empty: none yet.
	std::string lastLine() const;
	/// @return true when its process has ended within that time
	bool ended(Millis limit);
	void stop();
};

} // namespace velarix::lab::hostile
