/// What happened to both nodes, in the form of "velarix-lab timeline".
#pragma once

#include <string>

#include "dev/simulate/Faults.h"
#include "lab/core/Timeline.h"

namespace velarix::simulate
{

class Chronicle
{
public:
	explicit Chronicle(World& world);

	void fault(const Fault& fault, bool injected);
	std::string text() const { return lab::toText(m_timeline); }

private:
	void look();

	World& m_world;
	lab::Timeline m_timeline;
};

} // namespace velarix::simulate
