// The program's own malloc is found before the C library's, by the libraries too.

#include "Allocations.h"

#include <cstddef>

extern "C"
{
	void* __libc_malloc(std::size_t size);
	void* __libc_calloc(std::size_t number, std::size_t size);
	void* __libc_realloc(void* pMemory, std::size_t size);
	void* __libc_memalign(std::size_t alignment, std::size_t size);
}

namespace
{

thread_local unsigned long g_allocations = 0;

} // namespace

extern "C"
{
	void* malloc(std::size_t size)
	{
		++g_allocations;
		return __libc_malloc(size);
	}

	void* calloc(std::size_t number, std::size_t size)
	{
		++g_allocations;
		return __libc_calloc(number, size);
	}

	void* realloc(void* pMemory, std::size_t size)
	{
		++g_allocations;
		return __libc_realloc(pMemory, size);
	}

	void* aligned_alloc(std::size_t alignment, std::size_t size)
	{
		++g_allocations;
		return __libc_memalign(alignment, size);
	}
}

unsigned long allocations()
{
	return g_allocations;
}
