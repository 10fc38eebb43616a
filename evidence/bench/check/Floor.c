#define _GNU_SOURCE
#include "Floor.h"

#include <dirent.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

enum
{
	line_size = 128,
	path_size = 32 + sizeof(((struct dirent*)0)->d_name)
};

static int is_process(const struct dirent* entry)
{
	return entry->d_type == DT_DIR && entry->d_name[0] >= '0' && entry->d_name[0] <= '9';
}

static int read_line(const char* path)
{
	char line[line_size];
	const int file = open(path, O_RDONLY | O_CLOEXEC);
	if (file == -1)
	{
		return 0;
	}
	const ssize_t size = read(file, line, sizeof line - 1);
	close(file);
	return size > 0 && memchr(line, '\n', (size_t)size) != NULL;
}

static int read_line_with_a_stream(const char* path)
{
	char line[line_size];
	FILE* file = fopen(path, "re");
	if (file == NULL)
	{
		return 0;
	}
	const int got = fgets(line, sizeof line, file) != NULL;
	fclose(file);
	return got;
}

static long over_all(int (*read_first_line)(const char*))
{
	char path[path_size] = "/proc/";
	long lines = 0;
	DIR* directory = opendir("/proc");
	if (directory == NULL)
	{
		return -1;
	}
	for (const struct dirent* entry = readdir(directory); entry != NULL; entry = readdir(directory))
	{
		if (is_process(entry))
		{
			strcpy(stpcpy(path + strlen("/proc/"), entry->d_name), "/status");
			lines += read_first_line(path);
		}
	}
	closedir(directory);
	return lines;
}

long floor_of_a_check(void)
{
	return over_all(read_line);
}

long floor_with_streams(void)
{
	return over_all(read_line_with_a_stream);
}
