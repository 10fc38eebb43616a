/// Gives a target the inputs of its corpus, one after the other, without the
/// fuzzer: an ordinary test with any compiler.
#include <algorithm>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "Target.h"

namespace
{

namespace fs = std::filesystem;

void replay(const fs::path& file)
{
	std::ifstream stream(file, std::ios::binary);
	if (!stream)
	{
		throw std::runtime_error("cannot read " + file.string());
	}
	const std::string bytes((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
	// So that the last words of a run that ends the program tell which one it was.
	std::fprintf(stderr, "replay: %s\n", file.c_str());
	LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

} // namespace

int main(int argc, char** argv)
{
	try
	{
		const fs::path corpus = argc == 2 ? argv[1] : "";
		std::vector<fs::path> files{fs::recursive_directory_iterator(corpus), {}};
		std::sort(files.begin(), files.end());
		if (files.empty())
		{
			std::fprintf(stderr, "replay: no input files\n");
			return 2;
		}
		LLVMFuzzerInitialize(&argc, &argv);
		for (const fs::path& file : files)
		{
			replay(file);
		}
		std::fprintf(stderr, "replay: %zu inputs\n", files.size());
		return 0;
	}
	catch (const std::exception& exc)
	{
		std::fprintf(stderr, "replay: %s\n", exc.what());
		return 2;
	}
}
