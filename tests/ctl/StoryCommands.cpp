// What the lines of a story do.

#include "PlainUser.h"
#include "StoryTest.h"
#include "ctl/handover/NodeLock.h"

using namespace velarix::inspect;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

const std::map<std::string, StoryTest::Command> StoryTest::kCommands{
    {"node", [](auto& test, auto& words) { test.makeNode(words.all == "master" ? 1 : 2); }},
    {"set",
     [](auto& test, auto& words)
     {
	     setKey(test.m_lines, words.first, words.rest);
	     test.writeSettings();
     }},
    {"disk",
     [](auto& test, auto&)
     {
	     test.makeDisk();
	     test.writeSettings();
     }},
    {"change",
     [](auto& test, auto& words)
     {
	     change(test.m_lines, test.inDirectory(words.all));
	     test.writeSettings();
     }},
    {"sound",
     [](auto& test, auto& words)
     {
	     std::vector<std::string> lines = soundLines();
	     for (const std::string& one : split(words.rest, " | "))
	     {
		     one.empty() ? void() : change(lines, one);
	     }
	     test.write(words.first, joined(lines));
     }},
    {"log", [](auto& test, auto& words) { test.writeLog(test.logOf(words.all)); }},
    {"archive-log",
     [](auto& test, auto& words) {
	     test.write(std::string(kLog) + "." + words.first, readFile(test.below(kLog)) + test.logOf(words.rest).text());
     }},
    {"later-log", [](auto& test, auto& words) { test.write("/later", test.logOf(words.all).text()); }},
    {"log-begins", [](auto& test, auto& words) { test.write(kLog, words.all + readFile(test.below(kLog))); }},
    {"zone", [](auto& test, auto& words) { test.m_zones.push_back(std::make_unique<LocalZone>(words.all.c_str())); }},
    {"wait", [](auto& test, auto& words) { test.now += seconds(words.all); }},
    {"pause", [](auto& test, auto& words)
     { test.m_atPause.emplace_back(words.first == "each" ? 0 : std::stoi(words.first), words.rest); }},
    {"at", [](auto& test, auto& words) { test.m_steps.emplace_back(seconds(words.first), words.rest); }},
    {"clock", [](auto& test, auto&) { test.m_clock = true; }},
    {"says", [](auto& test, auto& words) { test.m_says = words.all; }},
    {"at-act",
     [](auto& test, auto& words)
     {
	     test.m_atAct = words.all;
	     fakeHost().onAct = [&test, line = words.all](const std::string&)
	     {
		     test.m_atAct.clear();
		     test.obey(line);
	     };
     }},
    {"started", [](auto& test, auto& words) { fakeHost().starts[kAgent] = test.now - seconds(words.all); }},
    {"changed", [](auto& test, auto& words)
     { fakeHost().changed[test.below(words.first).string()] = test.now - seconds(words.rest); }},
    // ---- files
    {"file", [](auto& test, auto& words) { test.write(words.first, words.rest); }},
    {"edit",
     [](auto& test, auto& words)
     {
	     const std::vector<std::string> texts = split(words.rest, " => ");
	     const std::string file = readFile(test.below(words.first));
	     EXPECT_EQ(split(file, texts.at(0)).size(), 2U) << "is not there once";
	     test.write(words.first, Poco::replace(file, texts.at(0), texts.at(1)));
     }},
    {"program", [](auto& test, auto& words) { test.executable(words.first, words.rest); }},
    {"copy", [](auto& test, auto& words) { test.write(words.rest, readFile(VELARIX_PACKAGING "/" + words.first)); }},
    {"directory", [](auto& test, auto& words) { fs::create_directories(test.below(words.all)); }},
    {"fifo", [](auto& test, auto& words) { EXPECT_EQ(::mkfifo(test.below(words.all).c_str(), 0600), 0); }},
    {"link", [](auto& test, auto& words) { fs::create_symlink(words.rest, test.below(words.first)); }},
    {"group", [](auto& test, auto& words)
     { EXPECT_EQ(::geteuid() == 0 ? ::chown(test.below(words.first).c_str(), 0, number(words.rest)) : 0, 0); }},
    {"mask", [](auto&, auto& words) { ::umask(number(words.all, 8)); }},
    {"program-there",
     [](auto&, auto& words) {
	     fakeHost().files[words.all] = host::FileFacts{host::FileKind::regular, 0755, 0, 0};
     }},
    {"no-program", [](auto&, auto& words) { fakeHost().files[words.all] = host::FileFacts{}; }},
    {"remove", [](auto& test, auto& words) { fs::remove_all(test.below(words.all)); }},
    {"keep", [](auto& test, auto& words) { test.m_kept[words.all] = readFile(test.below(words.all)); }},
    {"mode",
     [](auto& test, auto& words) { fs::permissions(test.below(words.first), fs::perms(number(words.rest, 8))); }},
    // ---- the machine
    {"end", [](auto& test, auto& words) { test.endProcess(words.all); }},
    {"process",
     [](auto& test, auto& words)
     {
	     std::string state = words.rest;
	     const std::string name = cutWord(state);
	     test.endProcess(words.first);
	     test.addProcess(std::stoi(words.first), name, state.empty() ? 'S' : state[0], name == "VelarixHA" ? 4 : 1);
     }},
    {"parent", [](auto&, auto& words) { process(words.first).parent = std::stoi(words.rest); }},
    {"owner", [](auto&, auto& words) { process(words.first).user = number(words.rest); }},
    {"executable", [](auto&, auto& words) { process(words.first).executable = words.rest; }},
    {"hidden", [](auto&, auto& words) { fakeHost().hidden = {std::stoi(words.all)}; }},
    {"output", [](auto&, auto& words) { fakeHost().outputs[kAgent] = words.all; }},
    {"state", [](auto& test, auto& words) { test.writeState(words.first, words.rest); }},
    {"drop-address", [](auto&, auto&)
     { std::erase_if(fakeHost().addresses, [](const auto& one) { return one.address == "198.51.100.10"; }); }},
    {"no-carrier", [](auto&, auto& words) { fakeHost().interfaces.at(words.all).carrier = false; }},
    {"interface",
     [](auto&, auto& words) {
	     fakeHost().interfaces[words.all] = {true, true};
     }},
    {"no-interface", [](auto&, auto& words) { fakeHost().interfaces.erase(words.all); }},
    {"tunnel",
     [](auto& test, auto&) {
	     fakeHost().tunnel = host::TunnelSession{test.now - NodeLog::Span(70000), 1000, 2000, "203.0.113.2:51871"};
     }},
    {"answers", [](auto&, auto& words) { fakeHost().answering.insert(words.all); }},
    {"silent", [](auto&, auto& words) { fakeHost().answering.erase(words.all); }},
    {"links", [](auto&, auto&) { fakeHost().links.clear(); }},
    {"link-is",
     [](auto&, auto& words)
     {
	     std::istringstream text(words.all);
	     std::string alternative;
	     host::Link link;
	     text >> link.name >> link.type >> link.kind >> link.address >> link.permanent >> alternative;
	     link.kind = link.kind == "-" ? "" : link.kind;
	     link.permanent = link.permanent == "-" ? "" : link.permanent;
	     link.alternatives.assign(alternative.empty() ? 0 : 1, alternative);
	     std::erase_if(fakeHost().links, [&](const host::Link& other) { return other.name == link.name; });
	     fakeHost().links.push_back(link);
     }},
    {"new-key", [](auto&, auto& words) { fakeHost().newTunnelKey = words.all; }},
    {"holder",
     [](auto&, auto& words) {
	     fakeHost().holders = {{"198.51.100.10", words.all}};
     }},
    {"obey-signals", [](auto&, auto&) { fakeHost().onAct = obeySignal; }},
    {"disobey", [](auto&, auto&) { fakeHost().onAct = nullptr; }},
    {"another-command", [](auto& test, auto&) { test.m_otherLock = velarix::ctl::lockNode(test.paths); }},
    {"it-ends", [](auto& test, auto&) { test.m_otherLock.close(); }},
    {"commands-end", [](auto&, auto& words)
     { fakeHost().commandEnd = words.all == "tooLong" ? host::CommandEnd::tooLong : host::CommandEnd::noNamespace; }},
    {"ssh", [](auto& test, auto& words) { test.ssh(words.all + "\n"); }},
    {"partner-says",
     [](auto& test, auto& words)
     {
	     test.ssh("printf '%s\\n' '{\"node\":\"" + words.first +
	              "\",\"partner\":{\"address\":\"192.0.2.1\"},\"fail_over\":" + words.rest + "}'\nexit 1\n");
     }},
    {"partner-obeys",
     [](auto& test, auto& words)
     {
	     fakeHost().onAct = [&test](const std::string& act)
	     {
		     test.write("/done", readFile(test.below("/done")) + "here " + act + "\n");
		     obeySignal(act);
	     };
	     test.write("/done", "");
	     test.ssh("for word; do :; done\n[ \"$word\" != 'velarixctl status --json' ] || exec cat DIR/partner\n"
	              "echo \"there $word\" >>DIR/done\nexit " +
	              words.all + "\n");
     }},
    {"pair", [](auto& test, auto&) { test.makeReports(); }},
    {"swap-reports", [](auto& test, auto&) { fs::rename(test.below("/own"), test.below("/partner")); }},
    {"settings-of",
     [](auto& test, auto& words)
     {
	     test.patch(words.all, {{"op", "add"},
	                            {"path", "/pair/settings"},
	                            {"value", Json::parse(test.m_outcome.out)["pair"]["settings"]}});
     }},
    {"patch",
     [](auto& test, auto& words)
     {
	     std::string value = words.rest;
	     const std::string operation = cutWord(value);
	     Json change{{"op", operation}, {"path", cutWord(value)}};
	     change["value"] = value.empty() ? Json() : Json::parse(value);
	     test.patch("/" + words.first, change);
     }},
    // ---- the program
    {"user", [](auto&, auto& words) { fakeHost().user = number(words.all); }},
    {"terminal", [](auto& test, auto& words) { test.terminal = words.all == "yes"; }},
    {"colour", [](auto& test, auto& words) { test.colour = words.all == "yes"; }},
    {"window", [](auto&, auto& words) { fakeHost().windowLines = number(words.all); }},
    {"input",
     [](auto& test, auto& words)
     {
	     test.m_input = std::istringstream(words.all);
	     test.in = &test.m_input;
     }},
    {"run", [](auto& test, auto& words) { test.run(words.all); }},
    {"run-below", [](auto& test, auto& words) { test.run(words.all, true); }},
    {"run-plain",
     [](auto& test, auto& words)
     {
	     const PlainUser plain;
	     test.run(words.all);
     }},
};
