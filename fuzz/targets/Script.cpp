/// The managed programs' names, the run script and the kill commands.
///
/// Input: the kill command and the configured paths with 0xff between them. The
/// script's file is this program's: making and removing it is recorded, its bytes
/// go into a file in memory. Script, names and kill commands must be those of
/// ScriptModel.
#include <cstdint>
#include <memory>
#include <vector>

#include <unistd.h>

#include <Poco/File.h>
#include <Poco/FileStream.h>
#include <Poco/StringTokenizer.h>

#include "CAgent.h"
#include "Configuraion.h"
#include "Outside.h"
#include "Utill.h"
#include "VelarixLog.h"
#include "velarix/paths.h"

#include "Daemon.h"
#include "ScriptModel.h"
#include "Target.h"

// The library's calls for the script's file.
// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names for wrapped calls.
extern "C" bool __wrap__ZNK4Poco4File6existsEv(const Poco::File* pFile);
extern "C" void __wrap__ZN4Poco4File6removeEb(Poco::File* pFile, bool recursive);
extern "C" bool __wrap__ZN4Poco4File10createFileEv(Poco::File* pFile);
extern "C" void
__wrap__ZN4Poco16FileOutputStreamC1ERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEESt13_Ios_Openmode(
    Poco::FileOutputStream* pStream, const std::string& path, std::ios::openmode mode);
extern "C" void
__real__ZN4Poco16FileOutputStreamC1ERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEESt13_Ios_Openmode(
    Poco::FileOutputStream* pStream, const std::string& path, std::ios::openmode mode);
// NOLINTEND(bugprone-reserved-identifier)

namespace
{

constexpr std::size_t kMostPrograms = 6;

/// The script's file: where its bytes are, and whether it is there.
struct Script
{
	std::string path;
	int file = -1;
	bool there = false;
	bool opened = false;
};

Script g_script;
CAgent* g_pAgent = nullptr;

/// What was run through the shell, a line each.
std::string& commands()
{
	static auto* const pCommands = new std::string;
	return *pCommands;
}

/// Stands for the script's place while the wrapping is tried out: nothing can be
/// made or removed there.
constexpr char kNowhere[] = "/proc/velarix-nowhere";

void expectPlace(const std::string& path)
{
	fuzz::expectEqual("the script's place", path,
	                  g_pAgent == nullptr && path == kNowhere ? kNowhere : velarix::kRunScriptPath);
}

/// A call of the library that were not wrapped would reach the script of an
/// installed agent; here it ends the program.
void expectWrapped()
{
	g_script.there = true;
	Poco::File nowhere(kNowhere);
	fuzz::expect("the library's exists is wrapped", nowhere.exists());
	nowhere.remove();
	fuzz::expect("the library's remove is wrapped", !g_script.there);
	fuzz::expect("the library's createFile is wrapped", nowhere.createFile());
	Poco::FileOutputStream stream(kNowhere, std::ios::out | std::ios::trunc);
	fuzz::expect("the library's stream is wrapped", g_script.opened);
	stream.close();
}

/// References are the settings' matter; one without an end would end the daemon
/// there.
std::string withoutReferences(std::string text)
{
	for (std::size_t at = text.find("${"); at != std::string::npos; at = text.find("${", at))
	{
		text[at] = 'S';
	}
	return text;
}

void configure(std::string& kill, std::vector<std::string>& programs)
{
	Configuraion::pConf->setString("ADVENCE.PROCESS_KILL_COMMAND", kill);
	Configuraion::pConf->setInt("PROCESS_CHECK.PROCESS_NUM", static_cast<int>(programs.size()));
	for (std::size_t i = 0; i < programs.size(); ++i)
	{
		Configuraion::pConf->setString("PROCESS_CHECK.PROCESS_PATH" + std::to_string(i + 1), programs[i]);
	}
}

std::string readScript(std::size_t expected)
{
	static std::string buffer;
	buffer.resize(expected + 1);
	const ssize_t count = ::pread(g_script.file, buffer.data(), buffer.size(), 0);
	fuzz::expect("the script can be read", count >= 0);
	return buffer.substr(0, static_cast<std::size_t>(count));
}

} // namespace

bool __wrap__ZNK4Poco4File6existsEv(const Poco::File* pFile)
{
	expectPlace(pFile->path());
	return g_script.there;
}

void __wrap__ZN4Poco4File6removeEb(Poco::File* pFile, bool /*recursive*/)
{
	expectPlace(pFile->path());
	fuzz::expect("only a script that is there is removed", g_script.there);
	g_script.there = false;
}

bool __wrap__ZN4Poco4File10createFileEv(Poco::File* pFile)
{
	expectPlace(pFile->path());
	fuzz::expect("the script is made anew", !g_script.there);
	g_script.there = true;
	return true;
}

void __wrap__ZN4Poco16FileOutputStreamC1ERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEESt13_Ios_Openmode(
    Poco::FileOutputStream* pStream, const std::string& path, std::ios::openmode mode)
{
	expectPlace(path);
	fuzz::expect("the script is there before it is written", g_script.there);
	g_script.opened = true;
	__real__ZN4Poco16FileOutputStreamC1ERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEESt13_Ios_Openmode(
	    pStream, g_script.path, mode);
}

namespace outside
{

std::FILE* openPipe(const std::string& command)
{
	static std::FILE* const pNothing = std::fopen("/dev/null", "re");
	commands() += command + "\n";
	return pNothing;
}

int closePipe(std::FILE* /*pipe*/)
{
	return 0;
}

int runShell(const std::string& /*command*/)
{
	return 0;
}

Poco::ProcessHandle launch(const std::string& path, const std::vector<std::string>& /*arguments*/)
{
	throw Poco::NotFoundException(path);
}

int ping(const std::string& /*address*/, int count)
{
	return count;
}

} // namespace outside

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/)
{
	fuzz::captureConsole();
	fuzz::expectEqual("the library keeps an empty last token",
	                  static_cast<int>(Poco::StringTokenizer("a/", "/").count()), 2);
	fuzz::useSettings("[AGENT]\nVIRTUAL_IP_STOP_COMMAND = stop\nIGNORE_TIME = 1\n"
	                  "[PROCESS_CHECK]\nPROCESS_NUM = 0\nOBSERVATION_MODE = 1\n"
	                  "[ADVENCE]\nPROCESS_KILL_COMMAND = kill\n");
	velarixLog = new VelarixLog;
	g_script.path = fuzz::memoryFile("");
	g_script.file = std::stoi(g_script.path.substr(g_script.path.rfind('/') + 1));
	expectWrapped();
	g_pAgent = new CAgent(MODE_SLAVE);
	return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
	fuzz::Input input(data, size);
	std::string kill = withoutReferences(input.field());
	std::vector<std::string> programs;
	while (!input.empty() && programs.size() < kMostPrograms)
	{
		programs.push_back(withoutReferences(input.field()));
	}
	configure(kill, programs);
	const fuzz::ScriptModel expected = fuzz::scriptOf(kill, programs);
	fuzz::console().clear();
	commands().clear();
	g_script.opened = false;

	g_pAgent->makeProcessRunShellScript();
	Utill::processKill();

	fuzz::expect("the script was written", g_script.opened);
	fuzz::expectEqual("the run script", readScript(expected.script.size()), expected.script);
	fuzz::expectEqual("the kill commands", commands(), expected.commands);
	fuzz::expectEqual("the console", fuzz::console(), expected.console);
	return 0;
}
