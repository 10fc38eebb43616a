/// Gives a target the inputs of its corpus, one after the other, without the
/// fuzzer: an ordinary test with any compiler.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

#include "Target.h"

int main(int argc, char** argv)
{
	const std::filesystem::recursive_directory_iterator corpus(argc == 2 ? argv[1] : "");
	const std::set<std::filesystem::path> files(begin(corpus), end(corpus));
	LLVMFuzzerInitialize(&argc, &argv);
	for (const std::filesystem::path& file : files)
	{
		// So that the last words of a run that ends the program tell which one it was.
		std::fprintf(stderr, "replay: %s\n", file.c_str());
		std::ifstream stream;
		stream.exceptions(std::ios::failbit);
		stream.open(file, std::ios::binary);
		const std::string bytes(std::istreambuf_iterator<char>(stream), {});
		LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
	}
	std::fprintf(stderr, "replay: %zu inputs\n", files.size());
	return files.empty() ? 2 : 0;
}
