/// The least that any check of all processes must do.
#pragma once

#ifdef __cplusplus
extern "C"
{
#endif

	/// Reads the first line of each process's status file and does nothing with it:
	/// readdir, open, read, close.
	/// @return how many lines were read; -1 when /proc cannot be opened
	long floor_of_a_check(void);

	/// The same with the C library's streams: fopen, fgets, fclose.
	long floor_with_streams(void);

#ifdef __cplusplus
}
#endif
