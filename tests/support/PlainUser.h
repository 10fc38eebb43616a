/// Takes privileges of root from the calling thread while it lives: unless asked otherwise that
/// to open what a file's mode forbids, so that tests can have unreadable and read-only files.
#pragma once

#include <array>
#include <cerrno>
#include <cstring>

#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <gtest/gtest.h>

class PlainUser
{
public:
	explicit PlainUser(unsigned taken = (1U << CAP_DAC_OVERRIDE) | (1U << CAP_DAC_READ_SEARCH))
	{
		EXPECT_EQ(::syscall(SYS_capget, &m_header, m_before.data()), 0) << std::strerror(errno);
		Sets plain = m_before;
		plain[0].effective &= ~taken;
		EXPECT_EQ(::syscall(SYS_capset, &m_header, plain.data()), 0) << std::strerror(errno);
	}
	~PlainUser() { ::syscall(SYS_capset, &m_header, m_before.data()); }

	PlainUser(const PlainUser&) = delete;
	PlainUser& operator=(const PlainUser&) = delete;

private:
	using Sets = std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3>;

	__user_cap_header_struct m_header{_LINUX_CAPABILITY_VERSION_3, 0};
	Sets m_before{};
};
