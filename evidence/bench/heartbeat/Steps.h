/// The steps of a heartbeat, each as the agent does it and as it would be done with
/// the library's bare calls.
#pragma once

#include <functional>
#include <string>
#include <vector>

/// "agent"; "library": the bare calls with the agent's echo of its lines on the console;
/// "library-quiet": without that echo, where there is one; "file-channel": of a line
/// that is ready as it stands in the file.
struct Contender
{
	std::string name;
	std::function<void()> run;
};

/// One step with its contenders. All are called on equal terms: `prepare` so many
/// times, then the contender as often, then `finish` as often.
struct Step
{
	std::string name;
	std::vector<Contender> contenders;
	std::function<void()> prepare{}; ///< may be empty
	std::function<void()> finish{};  ///< may be empty
	int batch = 16;                  ///< how often at once; a listening socket holds no more than 64
};

/// The steps, in the order in which the page tells them. Call it once; what the
/// contenders work on lives as long as the program.
/// @throws Poco::Exception when the sockets or files cannot be made
std::vector<Step> makeSteps();
