/// A file descriptor that is closed with the object that holds it.
#pragma once

#include <utility>

#include <unistd.h>

namespace velarix::inspect
{

class Descriptor
{
public:
	Descriptor() = default;
	/// @param descriptor negative for none
	explicit Descriptor(int descriptor) : m_descriptor(descriptor) {}
	Descriptor(Descriptor&& other) noexcept : m_descriptor(other.release()) {}
	Descriptor& operator=(Descriptor&& other) noexcept
	{
		if (this != &other)
		{
			reset(other.release());
		}
		return *this;
	}
	~Descriptor() { reset(); }

	explicit operator bool() const { return m_descriptor >= 0; }
	int get() const { return m_descriptor; }
	/// Gives it to the caller, who closes it.
	int release() { return std::exchange(m_descriptor, -1); }
	/// Closes what it holds and takes another one.
	void reset(int descriptor = -1)
	{
		if (m_descriptor >= 0)
		{
			::close(m_descriptor);
		}
		m_descriptor = descriptor;
	}
	void close() { reset(); }

private:
	int m_descriptor = -1;
};

} // namespace velarix::inspect
