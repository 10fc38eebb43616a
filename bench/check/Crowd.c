/* A crowd of processes that sleep until their namespace ends.
 *
 *   velarix-bench-crowd NUMBER [NAME...]
 *
 * The first processes are known by the given names. Prints one line when all are
 * there. */
#include <stdio.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <unistd.h>

static void sleep_for_ever(const char* name)
{
	prctl(PR_SET_NAME, name);
	for (;;)
	{
		pause();
	}
}

int main(int argc, char** argv)
{
	const long number = argc > 1 ? strtol(argv[1], NULL, 10) : 0;
	for (long i = 0; i < number; ++i)
	{
		const pid_t child = fork();
		if (child == -1)
		{
			perror("fork");
			return 1;
		}
		if (child == 0)
		{
			sleep_for_ever(i + 2 < argc ? argv[i + 2] : "sleeper");
		}
	}
	if (puts("there") == EOF || fflush(stdout) == EOF)
	{
		return 1;
	}
	sleep_for_ever("sleeper");
}
