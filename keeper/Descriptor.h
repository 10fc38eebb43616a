/// A descriptor that closes itself.
#pragma once

#include <utility>

#include <unistd.h>

namespace velarix::keeper
{

class Descriptor
{
public:
	Descriptor() = default;
	/// @param descriptor what open(2) and its like return, -1 for none
	explicit Descriptor(int descriptor) : m_descriptor(descriptor) {}
	~Descriptor() { reset(); }
	Descriptor(Descriptor&& other) noexcept : m_descriptor(std::exchange(other.m_descriptor, -1)) {}
	Descriptor& operator=(Descriptor&& other) noexcept
	{
		std::swap(m_descriptor, other.m_descriptor);
		return *this;
	}

	explicit operator bool() const { return m_descriptor >= 0; }
	int get() const { return m_descriptor; }
	void reset()
	{
		if (m_descriptor >= 0)
		{
			::close(std::exchange(m_descriptor, -1));
		}
	}

private:
	int m_descriptor = -1;
};

} // namespace velarix::keeper
