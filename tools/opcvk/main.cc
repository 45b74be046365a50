// opcvk: packs folders into the file system of an OPC package, lists, reads and changes it,
// and extracts it again.
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <string>

#include <CLI/CLI.hpp>

#ifdef __GLIBC__
#include <malloc.h>
#endif

#include <opc/core/exception.h>
#include <opc/model/xml/xerces_retainer.h>
#include <opc/vkservices/version.h>

#include "commands.h"
#include "process_end.h"
#include "silenced_stdout.h"
#include "tool_error.h"
#include "user_locale.h"

namespace {

constexpr int kFailure = 1;
constexpr int kUsageError = 2;

std::string versionLine() {
  return std::string("opcvk ") + opcvkservices_version + " (library built " +
         opcvkservices_build_date + ")";
}

int reportFailure(char const* message) {
  std::fflush(stdout);
  std::fprintf(stderr, "opcvk: %s\n", message);
  return kFailure;
}

// The tool reads and inflates files on several threads into buffers of up to a few MiB that
// live for a moment.  Left to itself, the C library raises its threshold for mapping a block
// of its own each time such a block is freed, and then serves the next ones from per-thread
// arenas that keep their freed pages: the process grew by 20 MiB and more for nothing.  A
// fixed threshold sends every large buffer straight back to the system, and two arenas are
// enough for the few threads the tool runs.
void returnLargeBuffersToTheSystem() {
#ifdef __GLIBC__
  constexpr int kLargeBuffer = 1024 * 1024;
  constexpr int kArenas = 2;
  mallopt(M_MMAP_THRESHOLD, kLargeBuffer);
  mallopt(M_ARENA_MAX, kArenas);
#endif
}

// A limit on the size of files (ulimit -f) raises SIGXFSZ at the write that passes it, whose
// default action ends the process there: a package's temporary file stayed beside it, and a
// file being extracted stayed cut short, with no word of why.  Ignored, the signal leaves the
// write to fail with EFBIG, which the command reports and cleans up after like any other
// failed write.
void reportFileSizeLimitAsAnError() { std::signal(SIGXFSZ, SIG_IGN); }

// The subcommands, in the order that help lists them, with the function that sets each up.
struct CommandSetUp {
  char const* name;
  void (*add)(CLI::App&, opcvk::Commands&);
};

constexpr CommandSetUp kCommandSetUps[] = {
    {"pack", opcvk::addPackCommand},       {"add", opcvk::addAddCommand},
    {"mkdir", opcvk::addMkdirCommand},     {"ln", opcvk::addLnCommand},
    {"rm", opcvk::addRmCommand},           {"list", opcvk::addListCommand},
    {"cat", opcvk::addCatCommand},         {"info", opcvk::addInfoCommand},
    {"props", opcvk::addPropsCommand},     {"extract", opcvk::addExtractCommand},
    {"encrypt", opcvk::addEncryptCommand}, {"test", opcvk::addTestCommand},
};

// Setting up every subcommand's options cost more than the whole work of listing a small
// package.  When the first argument names a subcommand, the parser can take no other one
// (the application requires exactly one, and the first word is it), so that one alone is set
// up: its help, its errors and its results are the same as with all of them beside it.  Any
// other first argument (none, an option such as --help or --version, a word that names no
// subcommand) sets all of them up, since help and errors may list them.
void addCommands(CLI::App& app, opcvk::Commands& commands, char const* first) {
  if (first != nullptr) {
    for (CommandSetUp const& setUp : kCommandSetUps) {
      if (std::strcmp(first, setUp.name) == 0) {
        setUp.add(app, commands);
        return;
      }
    }
  }
  for (CommandSetUp const& setUp : kCommandSetUps) setUp.add(app, commands);
}

}  // namespace

int main(int argc, char** argv) {
  // The version alone, as the parser prints it, without setting up the locale or the parser:
  // the parser tells it by throwing, and the throw and everything set up before it cost more
  // than printing a line.
  if (argc == 2 && std::strcmp(argv[1], "--version") == 0) {
    std::printf("%s\n", versionLine().c_str());
    return 0;
  }
  returnLargeBuffersToTheSystem();
  reportFileSizeLimitAsAnError();
  // Paths on the command line and in messages are in the user's encoding.
  opcvk::adoptUserLocale();

  CLI::App app(
      "Keeps a file system of files, folders and symbolic links, with their "
      "permissions and times, in an OPC package.",
      "opcvk");
  app.set_version_flag("--version", versionLine());
  app.require_subcommand(1);
  app.footer(
      "Examples:\n"
      "  opcvk pack photos photos.opc\n"
      "  opcvk list -l photos.opc\n"
      "  opcvk extract photos.opc restored\n"
      "\n"
      "Run 'opcvk <command> --help' for the options of a command.");

  opcvk::Commands commands;
  addCommands(app, commands, argc > 1 ? argv[1] : nullptr);

  try {
    app.parse(argc, argv);
  } catch (CLI::ParseError const& error) {
    // Help and version are "errors" that exit 0; every other one is a usage error.
    return app.exit(error) == 0 ? 0 : kUsageError;
  }

  try {
    // The library's documents are read without the XML library when they are plain, as those
    // it writes are; any other initialises it, and reading several of them would build its
    // tables (about 1.5 ms) each time.  Once initialised, it is kept for the whole command.
    opc::model::XercesRetainer xml;
    // The library tells some failures on std::cout before it raises them; the tool's standard
    // output carries results only, and the failure is told once, on standard error.
    opcvk::SilencedStdout silenced;
    for (opcvk::Command const& command : commands) {
      if (command.app->parsed()) command.run();
    }
  } catch (opcvk::ResultIsFailure const&) {
    std::fflush(stdout);
    return kFailure;
  } catch (opc::Exception const& error) {
    return reportFailure(error.what());
  } catch (std::out_of_range const&) {
    // The library's one documented std::out_of_range: a manifest of the older form with an
    // entry whose name is empty, which has no first character to read.  Its own text names a
    // string member and would tell the user nothing.
    return reportFailure("The file system manifest has an entry with an empty name");
  } catch (std::exception const& error) {
    return reportFailure(error.what());
  }
  if (std::fflush(stdout) != 0) return reportFailure("Could not write to standard output");
  // Every command has finished its work: its packages are closed and its files written.
  // Tearing down what is left (the parser, the parsed options, and the static objects of the
  // tool and its libraries) changes nothing outside the process, and cost a short command some
  // 60,000 instructions.
  opcvk::endProcessWithoutTeardown();
  return 0;
}
