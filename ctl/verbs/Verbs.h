/// The verbs of the program, one source file each. A verb adds its subcommand
/// with options, and a callback that puts what it does into Context::action.
#pragma once

#include <vector>

#include "ctl/Context.h"

namespace CLI
{
class App;
}

namespace velarix::ctl
{

using AddVerb = void (*)(CLI::App&, Context&);

void addCheck(CLI::App& app, Context& context);
void addEvents(CLI::App& app, Context& context);
void addExplain(CLI::App& app, Context& context);
void addInit(CLI::App& app, Context& context);
void addMaintenance(CLI::App& app, Context& context);
void addMetrics(CLI::App& app, Context& context);
void addNagios(CLI::App& app, Context& context);
void addNotify(CLI::App& app, Context& context);
void addPair(CLI::App& app, Context& context);
void addStatus(CLI::App& app, Context& context);
void addSwitchover(CLI::App& app, Context& context);
void addWatch(CLI::App& app, Context& context);

/// In the order of the help text: a node's life from its installation on.
inline const std::vector<AddVerb> kVerbs{
    addInit,    addCheck,      addStatus,      addPair,    addWatch,  addEvents,
    addExplain, addSwitchover, addMaintenance, addMetrics, addNagios, addNotify,
};

} // namespace velarix::ctl
