/// What a tool prints about a program file.
#pragma once

#include <array>
#include <cstdio>
#include <memory>
#include <string>

/// @return what the shell command prints on standard output; empty when it cannot be run
inline std::string outputOf(const std::string& command)
{
	struct ClosePipe
	{
		void operator()(std::FILE* pPipe) const { ::pclose(pPipe); }
	};
	const std::unique_ptr<std::FILE, ClosePipe> pipe(::popen(command.c_str(), "r"));
	std::string text;
	std::array<char, 256> piece{};
	while (pipe != nullptr && std::fgets(piece.data(), static_cast<int>(piece.size()), pipe.get()) != nullptr)
	{
		text += piece.data();
	}
	return text;
}
