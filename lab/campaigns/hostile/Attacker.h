/// An attack that goes on, from the lab's third host on the communication network.
#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <string>
#include <thread>

#include "lab/campaigns/hostile/Attacks.h"
#include "lab/core/Lab.h"

namespace velarix::lab::hostile
{

struct AttackerPlan
{
	std::string attack;
	std::string detail{}; ///< of forged heartbeats: the fields; of "replay": whose heartbeat
	HostId target = HostId::a;
	std::uint64_t seed = 1;
	long count = 10000;  ///< see AttackParameters
	bool tunnel = false; ///< the heartbeats go through one
	bool beside = false; ///< ... and its target is attacked at its address on the communication network
};

class Attacker
{
public:
	/// Begins. For a replay it first waits for the heartbeat that is captured.
	/// `lab` must outlive the attacker.
	/// @throws LabError when there is no such attack, or nothing is overheard
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
	/// The heartbeat that is forged or replayed; empty: the attack has none.
	const std::string& payload() const { return m_parameters.payload; }
	const AttackTally& tally() const { return m_tally; }

private:
	Lab& m_lab;
	const AttackInfo& m_attack;
	std::atomic<bool> m_stop{false};
	std::atomic<bool> m_ended{false};
	AttackParameters m_parameters;
	AttackTally m_tally;
	std::string m_problem;
	std::thread m_thread;

	void join();
};

} // namespace velarix::lab::hostile
