/* A crowd of processes that sleep until their namespace ends.
 *
 *   velarix-bench-crowd NUMBER [NAME...]
 *
 * The first processes run under the given names, as programs of these names would.
 * Prints one line when all are there. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <unistd.h>

enum
{
	ready = 3 /* the descriptor on which a named process tells that it has its name */
};

static const char as_sleeper[] = "sleep";

static void sleep_for_ever(void)
{
	for (;;)
	{
		pause();
	}
}

/* The short name and the command line both carry the name. */
static void become(const char* name)
{
	execl("/proc/self/exe", name, as_sleeper, (char*)NULL);
	perror("exec");
	_exit(1);
}

static int be_sleeper(const char* name)
{
	prctl(PR_SET_NAME, name);
	if (write(ready, "!", 1) != 1)
	{
		return 1;
	}
	close(ready);
	sleep_for_ever();
	return 1;
}

static int start(long number, int names, char** name)
{
	int ends[2] = {-1, -1};
	if (pipe(ends) == -1 || dup2(ends[1], ready) == -1)
	{
		perror("pipe");
		return 1;
	}
	for (long i = 0; i < number; ++i)
	{
		const pid_t child = fork();
		if (child == -1)
		{
			perror("fork");
			return 1;
		}
		if (child == 0 && i < names)
		{
			become(name[i]);
		}
		if (child == 0)
		{
			sleep_for_ever();
		}
	}
	for (int i = 0; i < names && i < number; ++i)
	{
		char byte;
		if (read(ends[0], &byte, 1) != 1)
		{
			return 1;
		}
	}
	return 0;
}

int main(int argc, char** argv)
{
	if (argc == 2 && strcmp(argv[1], as_sleeper) == 0)
	{
		return be_sleeper(argv[0]);
	}
	if (argc < 2 || start(strtol(argv[1], NULL, 10), argc - 2, argv + 2) != 0)
	{
		return 1;
	}
	if (puts("there") == EOF || fflush(stdout) == EOF)
	{
		return 1;
	}
	sleep_for_ever();
}
