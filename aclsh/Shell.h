// The aclsh command interpreter: ACL configuration typed as an operator types it, applied
// through edit sessions and configuration sessions, against a state store with simulated
// dataplanes. One line at a time, from a script, a pipe or a terminal.
//
//   fwk::StateStore store;
//   aclsh::Shell shell(store, std::cout, std::cerr);
//   shell.run("ip access-list web", {"setup.acl", 1});
//   shell.run("10 permit tcp any host 192.0.2.1 eq 443", {"setup.acl", 2});
//   shell.run("exit", {"setup.acl", 3});          // commits
//   shell.finish();                                // end of input: commits an open list
//
// Results go to `out`, in words; refusals and bad input go to `err` as "FILE:LINE:COLUMN: what
// was expected". With Options::json everything goes to `out`, one JSON object a line
// (internal/ShellImpl.h lists what they hold). A line that fails changes no configuration: an
// edit refused by the session leaves the list as it was; in a list block read from a file
// the whole block is dropped, up to its end, and a script that stops on an error drops the
// open edit instead of committing it. After a conflict with
// another session the shell drops its session and never reverts (that would undo the other
// session's work); it reverts only what its own session wrote.
#pragma once

#include <cstddef>
#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace fwk {
class StateStore;
}

namespace aclsh {

// Where a line came from, for messages.
struct Location {
  std::string file;  // "" for a terminal, where a failed line leaves the list edit open
  std::size_t line = 0;
};

struct Options {
  bool json = false;       // print JSON Lines only
  std::string configFile;  // what `write` saves to ("" when none was given)
  bool check = false;      // everything runs as usual, but no file is written
};

class Shell {
 public:
  Shell(fwk::StateStore& store, std::ostream& out, std::ostream& err, Options options = {});
  ~Shell();
  Shell(const Shell&) = delete;
  Shell& operator=(const Shell&) = delete;

  // Runs one line; false when it failed (the message is written already).
  bool run(std::string_view line, const Location& where);
  // End of input: commits an open list, leaves the other modes. False when that failed.
  bool finish();
  // Drops whatever is open without committing: a script stopped by an error changes nothing
  // more.
  void abandon();
  // The prompt for the mode the shell is in: "aclsh#", "aclsh(acl-web)#",
  // "aclsh(config-s-maint-if-Ethernet1)#", ...
  [[nodiscard]] std::string prompt() const;
  // Nothing is open: no list being edited, no interface, no configuration session.
  [[nodiscard]] bool atTop() const;
  // `exit` or `quit` at the top, or Ctrl-D there: the shell reads no more lines.
  [[nodiscard]] bool ended() const;

  // For a terminal. The words that complete the last word of `line` (the line up to the
  // cursor), for Tab; what may come next, a choice a line with its help, for `?`.
  [[nodiscard]] std::vector<std::string> complete(std::string_view line) const;
  [[nodiscard]] std::string help(std::string_view line) const;
  // Ctrl-D: `end` in a list (which commits it) or an interface; at the top, the end of the
  // shell (with a configuration session open, once it has said so).
  void endOfTyping();

  class Impl;  // the shell's state; its commands name it

 private:
  std::unique_ptr<Impl> impl_;
};

}  // namespace aclsh
