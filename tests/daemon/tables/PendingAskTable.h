/// What the two tables about a slave's pending ask share: the rows and how one is run.
#pragma once

#include <ostream>

#include "ReceiverTest.h"
#include "velarix/shared_value.h"

struct PendingAskRow
{
	const char* name;
	std::int32_t status;
	const char* ask; ///< the field in the partner's heartbeat
	std::int32_t pending;
	std::int32_t count;
	MODE roleAfter;
	std::int32_t pendingAfter;
	std::int32_t countAfter;
	events::List steps;
};

inline void PrintTo(const PendingAskRow& row, std::ostream* pStream)
{
	*pStream << row.name;
}

/// A slave that a reset would make master.
class PendingAskTable : public ReceiverTest, public testing::WithParamInterface<PendingAskRow>
{
protected:
	/// Hears the row's heartbeat of a partner in this role and compares all but the status.
	void expectAsWritten(const char* partnerRole)
	{
		const PendingAskRow& row = GetParam();
		configureRole("1");
		mode = MODE_SLAVE;
		status() = row.status;
		count() = row.count;
		velarix::storeShared(g_specialAsking, row.pending);

		hear(partnerRole, row.ask);

		EXPECT_EQ(mode, row.roleAfter);
		EXPECT_EQ(velarix::loadShared(g_specialAsking), row.pendingAfter);
		EXPECT_EQ(count(), row.countAfter);
		EXPECT_THAT(events::all(), testing::ElementsAreArray(steps::heard({row.steps})));
	}
};
