/// What a call writes to the two standard streams.
#pragma once

#include <functional>
#include <string>

#include <gtest/gtest.h>

struct Console
{
	std::string out;
	std::string err;
};

/// Runs `call` with both streams captured; an exception goes on to the caller,
/// the streams being free again.
inline Console consoleOf(const std::function<void()>& call)
{
	testing::internal::CaptureStdout();
	testing::internal::CaptureStderr();
	const auto release = []
	{
		Console result;
		result.out = testing::internal::GetCapturedStdout();
		result.err = testing::internal::GetCapturedStderr();
		return result;
	};
	try
	{
		call();
	}
	catch (...)
	{
		release();
		throw;
	}
	return release();
}
