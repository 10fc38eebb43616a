/// Programs that a fault keeps running in the background of a host: a killer
/// loop, a stranger that sends heartbeats. They are no part of the pair.
#pragma once

#include <map>
#include <string>
#include <vector>

#include <sys/types.h>

#include "Host.h"

namespace velarix::lab
{

class Errands
{
public:
	Errands() = default;
	/// Ends all of them.
	~Errands();
	Errands(const Errands&) = delete;
	Errands& operator=(const Errands&) = delete;

	/// Starts a program in all namespaces of the host, until end(name). It ends
	/// with the host, too.
	/// @throws LabError when an errand of that name is under way
	void start(const Host& host, const std::string& name, const std::vector<std::string>& argv);

	/// Ends the errand. @throws LabError when there is none of that name
	void end(const std::string& name);

	bool underWay(const std::string& name) const { return m_errands.contains(name); }

private:
	std::map<std::string, pid_t> m_errands;
};

} // namespace velarix::lab
