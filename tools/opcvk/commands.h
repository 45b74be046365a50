// The subcommands of opcvk.  Each adds itself to the application and leaves behind what to
// run if the user chose it; the work runs after the whole command line has been parsed, so
// that a usage error never leaves work half done.
#ifndef TOOLS_OPCVK_COMMANDS_H_
#define TOOLS_OPCVK_COMMANDS_H_

#include <functional>
#include <vector>

#include <CLI/CLI.hpp>

namespace opcvk {

struct Command {
  CLI::App* app;
  // Does the work; failures are exceptions (opc::Exception, ToolError, std::exception).
  std::function<void()> run;
};

using Commands = std::vector<Command>;

void addPackCommand(CLI::App& app, Commands& commands);
void addAddCommand(CLI::App& app, Commands& commands);
void addMkdirCommand(CLI::App& app, Commands& commands);
void addLnCommand(CLI::App& app, Commands& commands);
void addRmCommand(CLI::App& app, Commands& commands);
void addListCommand(CLI::App& app, Commands& commands);
void addCatCommand(CLI::App& app, Commands& commands);
void addInfoCommand(CLI::App& app, Commands& commands);
void addPropsCommand(CLI::App& app, Commands& commands);
void addExtractCommand(CLI::App& app, Commands& commands);
void addEncryptCommand(CLI::App& app, Commands& commands);
void addTestCommand(CLI::App& app, Commands& commands);

// Adds the -q/--quiet flag that every subcommand has, bound to `quiet`.
void addQuietFlag(CLI::App& command, bool& quiet);

// Adds the --v1-manifest flag that every subcommand that writes a package has, bound to
// `v1Manifest`; pass manifestForms(v1Manifest) (open_package.h) to OpenPackage.
void addV1ManifestFlag(CLI::App& command, bool& v1Manifest);

// Adds --wait SECONDS, which every subcommand that writes a package has, bound to `seconds`
// (0, the default, gives up at once when another writer has the package open).
void addWaitOption(CLI::App& command, double& seconds);

}  // namespace opcvk

#endif  // TOOLS_OPCVK_COMMANDS_H_
