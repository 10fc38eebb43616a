/// A file descriptor that is closed with the object that holds it.
#pragma once

#include <unistd.h>

namespace velarix::ctl::host
{

class Descriptor
{
public:
	explicit Descriptor(int descriptor) : m_descriptor(descriptor) {}
	~Descriptor() { close(); }
	Descriptor(const Descriptor&) = delete;
	Descriptor& operator=(const Descriptor&) = delete;

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

} // namespace velarix::ctl::host
