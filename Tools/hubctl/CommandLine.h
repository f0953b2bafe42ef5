#pragma once

#include "Tools/hubctl/Commands.h"

namespace CLI {
class App;
}

namespace hubctl {

/// Adds the commands of the table to a program, each noun with its verbs below it.
void AddCommands(CLI::App& ioApp);

/// After a command line was read: the command that it names and what it gives. Null for one that is not of the table.
const Command* ChosenCommand(const CLI::App& inApp, Values& outValues);

}  // namespace hubctl
