// The shell's state and the helpers its command files share.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "aclkit/Acl/AclApiSm.h"
#include "aclkit/Acl/AclConfigSession.h"
#include "aclkit/aclsh/Shell.h"
#include "aclkit/client/Change.h"

namespace Agent {
class Dataplane;
}
namespace Kernel {
class Dataplane;
struct Hits;
}  // namespace Kernel
namespace Interchange {
struct Finding;
}

namespace aclsh {

using Acl::AclDirection;
using Acl::AclType;
using Acl::U32;
// Where a list is bound: interfaces and directions.
using BoundAt = std::vector<std::pair<std::string, AclDirection>>;
using AclApi::ApiState;
using fwk::Ptr;
using fwk::String;
using Json = nlohmann::ordered_json;

// A line split into words, each with its 1-based column.
class Words {
 public:
  explicit Words(std::string_view line);
  [[nodiscard]] std::size_t size() const noexcept { return words_.size(); }
  [[nodiscard]] bool empty() const noexcept { return words_.empty(); }
  [[nodiscard]] std::string_view operator[](std::size_t i) const { return i < words_.size() ? words_[i] : ""; }
  // The column of word i, or one past the end of the line for a missing word.
  [[nodiscard]] std::size_t column(std::size_t i) const { return i < columns_.size() ? columns_[i] : end_; }
  // The line from word i on, as typed.
  [[nodiscard]] std::string_view from(std::size_t i) const;
  [[nodiscard]] bool is(std::size_t i, std::string_view word) const { return (*this)[i] == word; }
  // Word i as the keyword it abbreviates; its column stays.
  void expand(std::size_t i, std::string_view keyword) { words_[i] = keyword; }
  // The words from i on, at their columns: a command given after `do`.
  [[nodiscard]] Words tail(std::size_t i) const;

 private:
  std::string_view line_;
  std::vector<std::string_view> words_;
  std::vector<std::size_t> columns_;
  std::size_t end_;
};

// Bad input or a refused command: what was wrong, and where on the line (0: the whole line).
class CommandError : public std::runtime_error {
 public:
  CommandError(std::size_t column, const std::string& message) : std::runtime_error(message), column_(column) {}
  [[nodiscard]] std::size_t column() const noexcept { return column_; }

 private:
  std::size_t column_;
};

// A line as typed, ready to split: a CR before the line's end goes (CRLF files read as LF);
// text that is not UTF-8 is a CommandError at the column of its first bad byte.
std::string_view typedLine(std::string_view text);
// Where the word being typed at the end of `line` starts: past its last blank.
std::size_t partialStart(std::string_view line);
// Reads a number, or raises CommandError naming what was expected at the word's column.
U32 number(const Words& words, std::size_t i, std::string_view what);
// "in" or "out", as the grammar lets through.
AclDirection direction(const Words& words, std::size_t i);
// "ip", "ipv6" or "mac".
std::optional<AclType> family(std::string_view word);
// Writes a whole new file, synced, then renamed over `path` (through a symbolic link, keeping
// the old file's mode and owner); CommandError, leaving the old file, when that fails or the
// path is not a regular file.
void writeFile(const std::string& path, const std::string& text);
// Why a change did not go through, the reasons joined; a reason about `subject` itself goes
// without repeating it.
std::string reasons(const Client::Outcome& outcome, const std::string& subject);
// The whole file, or CommandError naming it.
std::string readFile(const std::string& path);

// ---- JSON mode (Output.cpp) ----
// Each line on standard output is one object whose one member, named for its kind, holds what
// was printed (the README's aclsh section describes each). A list is {family, name, standard,
// countersPerEntry, fragmentRules, entries}, an entry {sequence, line, fields}: the line
// without its sequence, the rule record's fields by name.
enum class Kind {
  error,
  message,
  note,
  outcome,
  lists,
  pending,
  diff,
  runningConfig,
  platform,
  dataplanes,
  packet,
  openconfig
};
Json entryJson(const Client::ListEntry& entry, bool standard);
Json listJson(AclType type, const String& name, bool standard, const Ptr<Acl::AclSubConfig>& version);
Json listJson(const Acl::AclConfig& list);  // its committed version
Json bindingJson(const Client::Binding& binding);
Json outcomeJson(const Client::Outcome& outcome, const std::string& subject, const std::string& change);
Json noteJson(const std::string& list, std::optional<U32> sequence, const std::string& field,
              const std::string& message);

// ---- the command grammar (Grammar.cpp) ----
// One word of a command: a keyword, or a value its handler reads. The commands of each mode
// are declared once, as trees of these; dispatch, abbreviations, Tab completion, `?` and the
// "expected ..." of a missing or unknown word all come from them.
struct Syntax {
  enum class Kind {
    keyword,  // a unique prefix is enough
    whole,    // an entry's own keyword (permit, deny, remark): typed whole, as it is saved
    name,     // any one word
    number,   // digits
  };
  enum class Rest {
    none,
    entry,  // the line from this word on is an entry of the list being edited
    text,   // the rest of the line is the handler's, free
  };
  using Run = void (*)(Shell::Impl&, const Words&);
  using Names = std::vector<std::string> (*)(const Shell::Impl&);

  Kind kind = Kind::keyword;
  std::string_view word;  // the keyword; for a value, its placeholder (NAME)
  std::string_view help;  // for a value, what it is: "a list name"
  Rest rest = Rest::none;
  Run run = nullptr;         // the command's handler, from this word on
  bool ends = false;         // the command may end after this word
  bool leaves = false;       // the command leaves the list or interface the shell is in
  bool topOnly = false;      // not after `do` (a command that changes modes)
  bool shifts = false;       // `do`: what follows is a command of the top mode
  bool sessionOnly = false;  // only while a configuration session is open
  Names names = nullptr;     // the values a name may take, for completion
  std::vector<Syntax> next;
};

// Where a line's words lead in a mode's commands, abbreviations expanded in `words`.
struct Resolved {
  Syntax::Run run = nullptr;
  std::size_t first = 0;  // where the command starts (past `do`)
  bool leaves = false;
  const Syntax* last = nullptr;  // the last word's syntax
  std::size_t entryAt = 0;       // where an entry starts, when last->rest is entry
};

class Shell::Impl {
 public:
  Impl(fwk::StateStore& store, std::ostream& out, std::ostream& err, Options options);
  ~Impl();

  bool run(std::string_view line, const Location& where);
  bool finish();
  void abandon();
  [[nodiscard]] std::string prompt() const;
  [[nodiscard]] bool atTop() const { return !list_ && !intf_ && !config_; }
  [[nodiscard]] bool ended() const { return ended_; }
  [[nodiscard]] std::vector<std::string> complete(std::string_view line) const;
  [[nodiscard]] std::string help(std::string_view line) const;
  // Ctrl-D: `end` in a list or an interface; at the top, the end of the shell.
  void endOfTyping();

 private:
  // ---- modes ----
  // A list being edited: its commit session, on the running configuration or on the
  // candidate of the open configuration session.
  struct ListEdit {
    AclType type = AclType::ip;
    String name;
    bool standard = false;
    Ptr<AclApi::ApiSm> session;
    // Where the pending list holds each entry (the lowest place), built when an addition first
    // needs it and dropped by whatever moves or removes entries.
    struct BodyHash {
      std::size_t operator()(const Text::EntryBody& body) const {
        return std::visit([](const auto& record) { return record.hash(); }, body);
      }
    };
    std::optional<std::unordered_map<Text::EntryBody, U32, BodyHash>> held;
  };
  struct InterfaceEdit {
    String name;
  };
  // A session whose outcome is still to come (the dataplanes have not all answered), or
  // that the hardware refused and `abort` may revert. It reports the outcome when it comes.
  struct Outstanding : AclApi::ApiSm::Reactor {
    Outstanding(Impl& owner, Ptr<AclApi::ApiSm> watched, std::string what)
        : AclApi::ApiSm::Reactor(watched.get()), shell(owner), session(std::move(watched)), subject(std::move(what)) {}
    void apiStateChanged() override;
    Impl& shell;
    Ptr<AclApi::ApiSm> session;
    std::string subject;
    bool reporting = false;  // the shell reports what happens inside its own calls itself
    bool failed = false;     // the hardware refused it: `abort` may revert it
    bool done = false;       // its outcome is reported: the shell lets go of it
  };

  // ---- the grammar (Grammar.cpp) ----
  struct Grammar {
    Syntax top;
    Syntax list;
    Syntax interface;
  };
  static const Grammar& grammar();
  static std::vector<Syntax> showCommands(bool inList, Syntax::Names lists);
  [[nodiscard]] const Syntax& mode() const;
  // Follows `words` through `root`, expanding abbreviations (when `abbreviated`); a
  // CommandError names what was expected where they go wrong.
  [[nodiscard]] Resolved resolve(const Syntax& root, Words& words, bool abbreviated = true) const;
  // The same, noting in `resolved` how far the words got before any CommandError; unless
  // `whole`, the words may stop short of a whole command (a line being typed).
  void walk(const Syntax& root, Words& words, bool abbreviated, bool whole, Resolved& resolved) const;
  // The values that may be typed after `words` (whole words), with their help: keywords,
  // names and value placeholders; "<cr>" when the line may end there.
  [[nodiscard]] std::vector<std::pair<std::string, std::string>> choices(Words& words, std::string_view partial,
                                                                         bool forHelp) const;
  [[nodiscard]] std::vector<std::string> listNames() const;
  [[nodiscard]] std::vector<std::string> dataplaneNames() const;

  // Lines of a list block that failed, up to its end (dropped with it).
  [[nodiscard]] bool skipped(const Words& words);
  // A line that opens a list or an interface, and so ends the mode the shell is in.
  [[nodiscard]] bool opensBlock(const Words& words) const;
  void dropBlock();
  void dispatch(Words& words);
  void listBlock(const Words& words);
  void abortTop();
  // `exit`, `quit` or `end` at the top.
  void leaveTop(const Words& words);

  // ---- lists (Lists.cpp) ----
  void openList(AclType type, const String& name, bool standard);
  void editEntry(const Words& words, std::size_t first);
  void listFlag(const Words& words);  // [no] counters per-entry, [no] fragment-rules
  void resequence(const Words& words);
  void abortList();
  // The place that holds `body` already, other than `sequence`, or nothing.
  [[nodiscard]] std::optional<U32> heldElsewhere(const Text::EntryBody& body, U32 sequence);
  void removeEntry(const Words& words, std::size_t first);
  void commitList();
  void removeList(AclType type, const String& name);
  void bind(const Words& words, bool unbind);
  void revertFailed();
  // Reports how a change through the client's pipeline ended: a refusal, a conflict, or where
  // each session that wrote it is with the dataplanes. A failure is a CommandError.
  void report(const Client::Outcome& outcome, const std::string& subject, const std::string& change);
  void settle(const Ptr<AclApi::ApiSm>& session, const std::string& subject, const std::string& change);
  void reportHardwareErrors(AclApi::ApiSm& session);
  [[nodiscard]] Ptr<AclApi::ApiSm> newSession(const String& name, AclType type, AclApi::ApiType api,
                                              bool standard = false) const;
  [[nodiscard]] std::string listName(AclType type, const String& name) const;

  // ---- declarative replace and OpenConfig (Interchange.cpp) ----
  void replaceList(const Words& words);
  void importOpenConfig(const Words& words);
  Client::Outcome applyChange(const Client::Change& change, const std::string& subject);
  void report(const Client::Outcome& outcome, const std::string& subject);
  void exportOpenConfig(const Words& words);
  void note(const Interchange::Finding& finding, std::ostream& text) const;

  // ---- show (Show.cpp) ----
  void showAccessLists(const Words& words);
  void showLists(std::optional<AclType> only, const String& name);
  // Each entry's hits in the kernel dataplanes, for a list that counts per entry.
  [[nodiscard]] std::map<U32, Kernel::Hits> hitsOf(const Acl::AclConfig& list, const BoundAt* where) const;
  void showRunning();
  void showPending();
  void showDiff();
  void showSessionDiff();
  [[nodiscard]] std::string runningConfig() const;
  [[nodiscard]] Json runningJson() const;
  void write();
  // Whether a command may write `path`: not when checking, which says so instead.
  bool writes(const std::string& path);

  // ---- platform, dataplanes, packets (Platform.cpp) ----
  void platform(const Words& words);
  // What `platform` switches by name: the capabilities and the skips.
  [[nodiscard]] static std::vector<std::string> capabilityNames();
  void showPlatform();
  [[nodiscard]] Json platformJson() const;
  // The platform as commands, from a fresh shell's (which can program everything): the room
  // a payload match needs, and the limits.
  [[nodiscard]] std::pair<std::string, std::string> platformConfig() const;
  void dataplane(const Words& words, bool negated);
  void showDataplanes();
  // The dataplanes as commands: those that make them, and those that set how they answer
  // (which go after the lists, so that loading them programs what they hold).
  [[nodiscard]] std::pair<std::string, std::string> dataplaneConfig() const;
  [[nodiscard]] Json dataplanesJson(bool settingsOnly) const;
  void testPacket(const Words& words);
  // Where the dataplanes are with the latest request to program (after a change that went
  // around the edit sessions).
  void reportProgramming();

  // ---- configuration sessions ----
  void openConfigSession(const std::string& name);
  void commitConfigSession(bool overwrite);

  void line(const std::string& text) const { out_ << text << '\n'; }
  // ---- output (Output.cpp) ----
  void emit(Kind kind, Json body) const;
  // An acknowledgement: its words, or a message object.
  void message(const std::string& text) const;
  // A failed line (or, with no line, the end of input), as the mode says.
  void error(std::optional<std::size_t> at, std::size_t column, const std::string& message) const;
  // How many dataplanes sessions wait for.
  [[nodiscard]] std::size_t dataplanesWaitedFor() const;
  // Lets go of sessions whose outcome has been reported.
  void sweep();
  // After a commit that stands: the version it replaced, kept for revert, goes.
  static void letGoOfReplaced(AclApi::ApiSm& session);

  Client::Library library_;
  std::ostream& out_;
  std::ostream& err_;
  Options options_;
  Location where_;

  std::optional<ListEdit> list_;
  std::optional<InterfaceEdit> intf_;
  std::unique_ptr<Acl::AclConfigSession> config_;
  Client::Snapshot configOpenedOn_;  // the running configuration the candidate was taken from
  std::string configName_;
  // A dataplane the shell made: a simulated one, or one in this namespace's kernel.
  struct Dataplane {
    std::unique_ptr<Agent::Dataplane> simulated;
    std::unique_ptr<Kernel::Dataplane> kernel;
    Dataplane(std::unique_ptr<Agent::Dataplane> s, std::unique_ptr<Kernel::Dataplane> k);
    Dataplane(Dataplane&&) noexcept;
    Dataplane& operator=(Dataplane&&) noexcept;
    ~Dataplane();
    [[nodiscard]] Agent::Dataplane* get() const;
    Agent::Dataplane* operator->() const { return get(); }
  };
  std::map<std::string, Dataplane> dataplanes_;
  std::vector<std::unique_ptr<Outstanding>> outstanding_;
  bool skipping_ = false;   // in a list block that failed: its lines go, up to its end
  bool ended_ = false;      // `exit` or `quit` at the top
  bool endedOnce_ = false;  // Ctrl-D at the top with a configuration session open, once
};

}  // namespace aclsh
