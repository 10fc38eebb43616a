/// A process of its own for the part of a test that cannot be undone: a lock that
/// stays taken, a thread that never ends, a changed time zone.
#pragma once

#include <csignal>
#include <cstdio>
#include <exception>
#include <functional>
#include <iostream>

#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

/// Runs `body` in a child process; what it expects counts for the calling test.
/// Threads left behind end with the child. The test must not have threads yet.
inline void inOwnProcess(const std::function<void()>& body)
{
	std::cout << std::flush;
	std::fflush(nullptr);
	const pid_t child = ::fork();
	ASSERT_NE(child, -1);
	if (child == 0)
	{
		::alarm(60); // a body that hangs is a failure with a name
		try
		{
			body();
		}
		catch (const std::exception& exc)
		{
			ADD_FAILURE() << "the own process threw: " << exc.what();
		}
		std::cout << std::flush;
		std::fflush(nullptr);
		::_exit(testing::Test::HasFailure() ? 1 : 0);
	}
	int status = 0;
	ASSERT_EQ(::waitpid(child, &status, 0), child);
	EXPECT_TRUE(WIFEXITED(status)) << "the own process was ended by signal " << WTERMSIG(status);
	EXPECT_TRUE(!WIFEXITED(status) || WEXITSTATUS(status) == 0) << "the own process failed, see above";
}

/// A test whose whole body runs in a child process.
#define TEST_IN_OWN_PROCESS(Fixture, Name)                                                                             \
	class Fixture##Name : public Fixture                                                                               \
	{                                                                                                                  \
	protected:                                                                                                         \
		void inside();                                                                                                 \
	};                                                                                                                 \
	TEST_F(Fixture##Name, HoldsInItsOwnProcess)                                                                        \
	{                                                                                                                  \
		inOwnProcess([this] { inside(); });                                                                            \
	}                                                                                                                  \
	void Fixture##Name::inside()
