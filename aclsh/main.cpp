// aclsh: ACL configuration from a script, a pipe or a terminal.
//
//   aclsh [--config FILE] [--check] [--trace FACILITY[/LEVELS],...] [--json] [--continue-on-error] [SCRIPT]
//
// Without SCRIPT it reads standard input: line by line with editing and history on a terminal,
// as a script otherwise. In a script the first error stops aclsh with exit status 1, dropping
// whatever edit is open, unless --continue-on-error (which still exits 1 at the end when any
// line failed): a list block with an error in it is dropped whole, and the script goes on
// after the block's end. With --json standard output carries JSON alone. With --config, aclsh first loads FILE (none
// yet: it starts empty; one it cannot read or load: it stops with exit status 2 or 1) and `write` saves there.
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <string_view>

#include "aclkit/aclsh/Shell.h"
#include "aclkit/aclsh/internal/Terminal.h"
#include "aclkit/platform/store/StateStore.h"
#include "aclkit/platform/trace/Trace.h"

namespace {

constexpr const char* usage =
    "usage: aclsh [--config FILE] [--check] [--trace FACILITY[/LEVELS],...] [--json] [--continue-on-error] [SCRIPT]\n"
    "       aclsh --help | --version\n";

constexpr const char* help =
    "ACL configuration for the library's lists, from SCRIPT, a pipe or a terminal.\n"
    "\n"
    "  --config FILE        load FILE first (a missing one starts empty); `write` saves there\n"
    "  --check              run everything as usual but write no file: exit status 0 only when\n"
    "                       the configuration and SCRIPT load whole, no change refused\n"
    "  --trace FAC[/LEVELS] send the library's traces to standard error (AclApi/0-9)\n"
    "  --json               standard output is JSON Lines, one object a line\n"
    "  --continue-on-error  go on after a failed line (past its list block); still exit 1\n"
    "  --help, --version    this text; the version\n"
    "\n"
    "Exit status: 0 when every line ran, 1 when one failed or FILE did not load, 2 for a bad\n"
    "invocation or a file that cannot be read. See aclsh(1).\n";

struct Arguments {
  aclsh::Options options;
  bool help = false;
  bool version = false;
  std::string script;
  std::string traces;
  bool continueOnError = false;
};

bool parse(int argc, char** argv, Arguments& args) {
  for (int i = 1; i < argc; ++i) {
    const std::string_view arg = argv[i];
    auto value = [&](std::string& into) {
      if (i + 1 >= argc) return false;
      into = argv[++i];
      return true;
    };
    if (arg == "--help" || arg == "-h") {
      args.help = true;
    } else if (arg == "--version") {
      args.version = true;
    } else if (arg == "--check") {
      args.options.check = true;
    } else if (arg == "--json") {
      args.options.json = true;
    } else if (arg == "--continue-on-error") {
      args.continueOnError = true;
    } else if (arg == "--config") {
      if (!value(args.options.configFile)) return false;
    } else if (arg == "--trace") {
      if (!value(args.traces)) return false;
    } else if ((arg.starts_with('-') && arg.size() > 1) || !args.script.empty()) {
      return false;
    } else {
      args.script = arg;
    }
  }
  return true;
}

// Runs every line of `in`; false when a line failed (and, unless `keepGoing`, stops there).
bool runScript(aclsh::Shell& shell, std::istream& in, const std::string& name, bool keepGoing) {
  // Long loads show how far they are, on a terminal only.
  const bool progress = isatty(STDERR_FILENO) != 0;
  bool ok = true;
  std::string text;
  std::size_t number = 0;
  while (!shell.ended() && std::getline(in, text)) {
    ++number;
    if (progress && number % 5000 == 0) std::cerr << "\r" << name << ": " << number << " lines" << std::flush;
    if (shell.run(text, {name, number})) continue;
    ok = false;
    if (!keepGoing) break;
  }
  if (progress && number >= 5000) std::cerr << "\r" << name << ": " << number << " lines\n";
  return ok;
}

}  // namespace

int main(int argc, char** argv) {
  Arguments args;
  if (!parse(argc, argv, args)) {
    std::cerr << usage;
    return 2;
  }
  if (args.help) {
    std::cout << usage << '\n' << help;
    return 0;
  }
  if (args.version) {
    std::cout << "aclsh " << ACLKIT_VERSION << '\n';
    return 0;
  }
  try {
    if (!args.traces.empty()) fwk::enableTraces(args.traces);
  } catch (const std::exception& e) {
    std::cerr << "aclsh: --trace " << args.traces << ": " << e.what() << '\n';
    return 2;
  }
  fwk::StateStore store;
  aclsh::Shell shell(store, std::cout, std::cerr, args.options);

  if (const std::string& saved = args.options.configFile; !saved.empty()) {
    // A missing file is a first run; anything else that cannot be read stops aclsh before a
    // `write` could replace it with less than it holds.
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(saved, error);
    if (status.type() != std::filesystem::file_type::not_found) {
      std::ifstream in(saved);
      if (error || !std::filesystem::is_regular_file(status) || !in) {
        std::cerr << "aclsh: cannot read " << saved << ": "
                  << (error ? error.message()
                      : !in ? std::strerror(errno)
                            : "not a regular file")
                  << '\n';
        return 2;
      }
      if (!runScript(shell, in, saved, false) || !shell.finish()) {
        shell.abandon();
        std::cerr << "aclsh: " << saved << " did not load\n";
        return 1;
      }
    }
  }

  if (args.script.empty() && isatty(STDIN_FILENO)) return aclsh::interactive(shell, args.options.json, argv[0]);
  std::ifstream file;
  if (!args.script.empty()) {
    file.open(args.script);
    if (!file) {
      std::cerr << "aclsh: cannot read " << args.script << '\n';
      return 2;
    }
  }
  std::istream& in = args.script.empty() ? std::cin : file;
  const bool ok = runScript(shell, in, args.script.empty() ? "<stdin>" : args.script, args.continueOnError);
  if (!ok && !args.continueOnError) {
    shell.abandon();
    return 1;
  }
  return shell.finish() && ok ? 0 : 1;
}
