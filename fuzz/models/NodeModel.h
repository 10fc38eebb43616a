/// What a node does on a heartbeat, as a reference model, as plainly as possible:
/// one function per cell of the decision table, no state of its own but the five
/// values. The daemon's code is compared with it, action by action.
#pragma once

#include <string>
#include <string_view>

namespace fuzz
{

struct NodeModel
{
	int role = 2;
	/// 1 OK, all else not OK.
	int status = 1;
	int asking = 0;
	int count = 0;
	bool configuredMaster = false;
	bool programsRun = false;

	/// Everything that it does, in order: console lines as the daemon writes them,
	/// actions as "ACTION, role ROLE\n".
	std::string story;

	void hear(std::string_view message);

private:
	void tell(int line, const std::string& text);
	void tellError(int line, const std::string& text);
	void act(const char* action);
	void decide(bool partnerIsMaster, std::string_view ask);
	void slaveHearsMaster(std::string_view ask);
	void slaveHearsSlave(std::string_view ask);
	bool stillWaiting();
	void reset();
};

} // namespace fuzz
