/// What the two tables of the decision on a heartbeat share: the rows and how one is run.
#pragma once

#include <ostream>

#include "ReceiverTest.h"
#include "velarix/shared_value.h"

struct OwnStatusRow
{
	const char* name;
	std::int32_t status;
	MODE role;
	const char* partner; ///< role and ask in the partner's heartbeat
	const char* ask;
	const char* configured;
	bool programs;
	MODE roleAfter;
	std::int32_t statusAfter;
	events::List steps;
};

inline void PrintTo(const OwnStatusRow& row, std::ostream* pStream)
{
	*pStream << row.name;
}

class OwnStatusTable : public ReceiverTest, public testing::WithParamInterface<OwnStatusRow>
{
protected:
	void expectAsWritten()
	{
		const OwnStatusRow& row = GetParam();
		configureRole(row.configured);
		programRuns(row.programs);
		mode = row.role;
		status() = row.status;

		hear(row.partner, row.ask);

		EXPECT_EQ(mode, row.roleAfter);
		EXPECT_EQ(status(), row.statusAfter);
		EXPECT_EQ(count(), 0);
		EXPECT_EQ(velarix::loadShared(g_specialAsking), 0);
		EXPECT_FALSE(running);
		EXPECT_THAT(events::all(), testing::ElementsAreArray(steps::heard({row.steps})));
	}
};
