// Owner of the precompiled headers; never built by itself.

#include "headers.h"

int main()
{
	return 0;
}
