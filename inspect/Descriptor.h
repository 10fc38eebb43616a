/// A file descriptor that is closed with the object that holds it.
#pragma once

#include <utility>

#include <unistd.h>

namespace velarix::inspect
{

class Descriptor
{
public:
	/// @param descriptor negative for none
	explicit Descriptor(int descriptor) : m_descriptor(descriptor) {}
	Descriptor(Descriptor&& other) noexcept : m_descriptor(std::exchange(other.m_descriptor, -1)) {}
	~Descriptor() { close(); }
	Descriptor(const Descriptor&) = delete;
	Descriptor& operator=(const Descriptor&) = delete;
	Descriptor& operator=(Descriptor&&) = delete;

	explicit operator bool() const { return m_descriptor >= 0; }
	int get() const { return m_descriptor; }
	void close()
	{
		if (m_descriptor >= 0)
		{
			::close(m_descriptor);
		}
		m_descriptor = -1;
	}

private:
	int m_descriptor;
};

} // namespace velarix::inspect
