// The program's own malloc is found before the C library's, by the libraries too.

#include "Allocations.h"

#include <bit>
#include <cerrno>
#include <cstddef>
#include <cstdlib>

#include <malloc.h>

// NOLINTBEGIN(bugprone-reserved-identifier): the C library names them so
extern "C"
{
	void* __libc_malloc(std::size_t size);
	void* __libc_calloc(std::size_t number, std::size_t size);
	void* __libc_realloc(void* pMemory, std::size_t size);
	void* __libc_memalign(std::size_t alignment, std::size_t size);
}
// NOLINTEND(bugprone-reserved-identifier)

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

	void* reallocarray(void* pMemory, std::size_t number, std::size_t size)
	{
		++g_allocations;
		std::size_t whole = 0;
		if (__builtin_mul_overflow(number, size, &whole))
		{
			errno = ENOMEM;
			return nullptr;
		}
		return __libc_realloc(pMemory, whole);
	}

	void* aligned_alloc(std::size_t alignment, std::size_t size)
	{
		++g_allocations;
		return __libc_memalign(alignment, size);
	}

	void* memalign(std::size_t alignment, std::size_t size)
	{
		++g_allocations;
		return __libc_memalign(alignment, size);
	}

	int posix_memalign(void** ppMemory, std::size_t alignment, std::size_t size)
	{
		++g_allocations;
		if (alignment % sizeof(void*) != 0 || !std::has_single_bit(alignment))
		{
			return EINVAL;
		}
		void* pMemory = __libc_memalign(alignment, size);
		if (pMemory == nullptr)
		{
			return ENOMEM;
		}
		*ppMemory = pMemory;
		return 0;
	}
}

unsigned long allocations()
{
	return g_allocations;
}
