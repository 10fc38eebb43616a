/// The name of a table's row as the name of its test.
#pragma once

#include <string>

#include <gtest/gtest.h>

template <typename Row> std::string rowName(const testing::TestParamInfo<Row>& row)
{
	return row.param.name;
}
