// aclsh on a terminal: line editing, Tab completion, `?` help and history, on libedit.
//
// Ctrl-C is a key here, not a signal: while a line is being typed it drops the line and
// gives a fresh prompt; while a command runs it is ignored, so it never ends the shell or
// cuts a change in half. Ctrl-D is `end` in a list or an interface, the end of the shell at
// the top. A literal `?` is typed as Ctrl-V ?.
#include "aclkit/aclsh/internal/Terminal.h"

#include <histedit.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "aclkit/aclsh/Shell.h"
#include "aclkit/aclsh/internal/ShellImpl.h"

namespace aclsh {

namespace {

struct Terminal {
  Shell& shell;
  std::FILE* out;
  std::string prompt;
  bool dropped = false;  // Ctrl-C: the line el_gets returns is no line
};

Terminal& terminalOf(EditLine* el) {
  void* data = nullptr;
  el_get(el, EL_CLIENTDATA, &data);
  return *static_cast<Terminal*>(data);
}

std::string lineUpToCursor(EditLine* el) {
  const LineInfo* line = el_line(el);
  return {line->buffer, static_cast<std::size_t>(line->cursor - line->buffer)};
}

char* promptOf(EditLine* el) {
  return terminalOf(el).prompt.data();
}

// Tab: the one word that fits is typed out; of several, what they share, or a list of them.
unsigned char complete(EditLine* el, int) {
  Terminal& terminal = terminalOf(el);
  const std::string line = lineUpToCursor(el);
  const std::string partial = line.substr(partialStart(line));
  const std::vector<std::string> words = terminal.shell.complete(line);
  if (words.empty()) return CC_REFRESH_BEEP;
  std::string shared = words[0];
  for (const std::string& word : words) {
    std::size_t same = 0;
    while (same < shared.size() && same < word.size() && shared[same] == word[same]) ++same;
    shared.resize(same);
  }
  if (words.size() == 1) shared += ' ';
  if (shared.size() > partial.size()) {
    el_insertstr(el, shared.substr(partial.size()).c_str());
    return CC_REFRESH;
  }
  std::string listing = "\n";
  for (const std::string& word : words) listing += word + "  ";
  std::fprintf(terminal.out, "%s", listing.c_str());
  return CC_REDISPLAY;
}

// ?: what may come next here, with a line of help each.
unsigned char help(EditLine* el, int) {
  Terminal& terminal = terminalOf(el);
  std::string text = terminal.shell.help(lineUpToCursor(el));
  if (text.ends_with('\n')) text.pop_back();  // the prompt comes back on a line of its own
  std::fprintf(terminal.out, "?\n%s", text.c_str());
  return CC_REDISPLAY;
}

// Ctrl-C: the line being typed goes, and a new prompt comes.
unsigned char dropLine(EditLine* el, int) {
  const LineInfo* line = el_line(el);
  el_cursor(el, static_cast<int>(line->lastchar - line->cursor));
  el_deletestr(el, static_cast<int>(line->lastchar - line->buffer));
  Terminal& terminal = terminalOf(el);
  std::fprintf(terminal.out, "^C\n");
  terminal.dropped = true;
  return CC_NEWLINE;
}

// Where history is kept between runs: $ACLSH_HISTORY, or ~/.aclsh_history.
std::string historyFile() {
  if (const char* file = std::getenv("ACLSH_HISTORY")) return file;
  if (const char* home = std::getenv("HOME")) return std::string(home) + "/.aclsh_history";
  return {};
}

// The history as libedit writes it (to an unnamed file: it wants a real one), then written
// whole over the old file, so that a failed write never leaves it cut short.
void saveHistory(History* past, const std::string& path) {
  if (path.empty()) return;
  const std::unique_ptr<std::FILE, decltype(&std::fclose)> scratch(std::tmpfile(), &std::fclose);
  HistEvent event;
  if (!scratch || ::history(past, &event, H_SAVE_FP, scratch.get()) < 0 || std::fflush(scratch.get()) != 0) {
    std::cerr << "aclsh: history not saved\n";
    return;
  }
  std::string text(static_cast<std::size_t>(std::ftell(scratch.get())), '\0');
  std::rewind(scratch.get());
  if (std::fread(text.data(), 1, text.size(), scratch.get()) != text.size()) {
    std::cerr << "aclsh: history not saved\n";
    return;
  }
  try {
    writeFile(path, text);
  } catch (const CommandError& e) {
    std::cerr << "aclsh: history not saved: " << e.what() << '\n';
  }
}

}  // namespace

int interactive(Shell& shell, bool json, const char* program) {
  // A Ctrl-C that comes while a command runs is let go: the command finishes.
  std::signal(SIGINT, SIG_IGN);
  // Standard output carries JSON alone: the prompt and the echo go to standard error.
  Terminal terminal{shell, json ? stderr : stdout, shell.prompt()};
  EditLine* el = el_init(program, stdin, terminal.out, stderr);
  History* past = history_init();
  HistEvent event;
  ::history(past, &event, H_SETSIZE, 1000);
  ::history(past, &event, H_SETUNIQUE, 1);
  const std::string historyPath = historyFile();
  if (!historyPath.empty() && std::filesystem::exists(historyPath))
    ::history(past, &event, H_LOAD, historyPath.c_str());

  el_set(el, EL_CLIENTDATA, &terminal);
  el_set(el, EL_EDITOR, "emacs");
  el_set(el, EL_HIST, ::history, past);
  el_set(el, EL_PROMPT, promptOf);
  // Ctrl-C (and Ctrl-R, Ctrl-V) reach the line editor as keys, not as a signal or the
  // terminal's own line editing, in both of its modes: a key typed while a command runs is
  // read as typed once the prompt comes back.
  el_set(el, EL_SETTY, "-d", "-isig", "-iexten", nullptr);
  el_set(el, EL_SETTY, "-x", "-isig", "-iexten", "-icanon", nullptr);
  el_set(el, EL_ADDFN, "aclsh-complete", "complete the word", complete);
  el_set(el, EL_ADDFN, "aclsh-help", "what may come next", help);
  el_set(el, EL_ADDFN, "aclsh-drop-line", "drop the line", dropLine);
  el_set(el, EL_BIND, "^I", "aclsh-complete", nullptr);
  el_set(el, EL_BIND, "?", "aclsh-help", nullptr);
  el_set(el, EL_BIND, "^C", "aclsh-drop-line", nullptr);
  el_set(el, EL_BIND, "^R", "em-inc-search-prev", nullptr);

  std::size_t number = 0;
  while (!shell.ended()) {
    terminal.prompt = shell.prompt();
    int count = 0;
    const char* input = el_gets(el, &count);
    if (terminal.dropped) {
      terminal.dropped = false;
      continue;
    }
    if (input == nullptr || count <= 0) {  // Ctrl-D on an empty line
      std::fputc('\n', terminal.out);
      shell.endOfTyping();
      continue;
    }
    std::string text(input, static_cast<std::size_t>(count));
    if (text.ends_with('\n')) text.pop_back();
    if (text.find_first_not_of(" \t") != std::string::npos) ::history(past, &event, H_ENTER, text.c_str());
    shell.run(text, {"", ++number});
  }
  saveHistory(past, historyPath);
  history_end(past);
  el_end(el);
  return shell.finish() ? 0 : 1;
}

}  // namespace aclsh
