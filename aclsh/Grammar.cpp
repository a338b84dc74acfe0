// The shell's commands, declared once per mode. Dispatch follows a line through them; Tab
// completion and `?` ask them what may come next; a word that is no command, or a missing
// one, is reported from them. What a command does with its values stays with its handler.
#include <algorithm>

#include "aclkit/aclsh/internal/ShellImpl.h"
#include "aclkit/text/AclText.h"

namespace aclsh {

namespace {

using WordKind = Syntax::Kind;
using Rest = Syntax::Rest;

Syntax keyword(std::string_view word, std::string_view help, std::vector<Syntax> next = {}) {
  return Syntax{.word = word, .help = help, .next = std::move(next)};
}
Syntax value(WordKind kind, std::string_view placeholder, std::string_view help, std::vector<Syntax> next = {}) {
  return Syntax{.kind = kind, .word = placeholder, .help = help, .next = std::move(next)};
}
Syntax ending(Syntax syntax) {
  syntax.ends = true;
  return syntax;
}
Syntax runs(Syntax::Run run, Syntax syntax) {
  syntax.run = run;
  return syntax;
}

std::vector<Syntax> onOff() {
  return {ending(keyword("on", "switch it on")), ending(keyword("off", "switch it off"))};
}

std::vector<Syntax> families(std::string_view ip, std::string_view ipv6, std::string_view mac,
                             const std::vector<Syntax>& next) {
  return {keyword("ip", ip, next), keyword("ipv6", ipv6, next), keyword("mac", mac, next)};
}

// [standard] NAME, then what `then` adds (for ip lists; the others have no standard form, and
// the handler says so).
std::vector<Syntax> listNamed(std::vector<Syntax> then, bool nameEnds) {
  Syntax name = value(WordKind::name, "NAME", "a list name", then);
  name.ends = nameEnds;
  return {keyword("standard", "a standard list: source addresses only", {name}), name};
}

// The commands, and their words, that neither change the mode nor leave it.
std::vector<Syntax> stayingInMode(const std::vector<Syntax>& commands) {
  std::vector<Syntax> staying;
  for (const Syntax& command : commands) {
    if (command.topOnly || command.leaves) continue;
    std::vector<Syntax> next = stayingInMode(command.next);
    if (next.empty() && !command.next.empty()) continue;  // every way on changes the mode
    staying.push_back(command);
    staying.back().next = std::move(next);
  }
  return staying;
}

}  // namespace

// The declarations. Coverage counts no branches here: building the tables has only the
// compiler's clean-up paths for an allocation that fails, which no input reaches; what the
// tables say is held by the tests of each command. GCOVR_EXCL_BR_START

// What `show` shows; a list only while one is being edited.
std::vector<Syntax> Shell::Impl::showCommands(bool inList, Syntax::Names lists) {
  const Syntax::Run accessLists = [](Impl& shell, const Words& words) { shell.showAccessLists(words); };
  Syntax name = ending(value(WordKind::name, "NAME", "a list name"));
  name.names = lists;
  auto listsOf = [&](std::string_view help) {
    return runs(accessLists, ending(keyword("access-lists", help, {name})));
  };
  std::vector<Syntax> what = {
      listsOf("the lists, their entries and bindings"),
      keyword("ip", "IPv4 lists", {listsOf("the IPv4 lists")}),
      keyword("ipv6", "IPv6 lists", {listsOf("the IPv6 lists")}),
      keyword("mac", "MAC lists", {listsOf("the MAC lists")}),
      runs([](Impl& shell, const Words&) { shell.showRunning(); },
           ending(keyword("running-config", "the running configuration, as commands"))),
      runs([](Impl& shell, const Words&) { shell.showPlatform(); },
           ending(keyword("platform", "what the platform can program"))),
      runs([](Impl& shell, const Words&) { shell.showDataplanes(); },
           ending(keyword("dataplanes", "the dataplanes and what they hold"))),
  };
  Syntax session = keyword("session-config", "the open configuration session",
                           {runs([](Impl& shell, const Words&) { shell.showSessionDiff(); },
                                 ending(keyword("diff", "what commit would change")))});
  session.sessionOnly = true;
  what.push_back(session);
  if (inList) {
    what.push_back(runs([](Impl& shell, const Words&) { shell.showPending(); },
                        ending(keyword("pending", "the list as edited, not yet committed"))));
    what.push_back(runs([](Impl& shell, const Words&) { shell.showDiff(); },
                        ending(keyword("diff", "what committing the list would change"))));
  }
  return what;
}

const Shell::Impl::Grammar& Shell::Impl::grammar() {
  static const Grammar grammar = [] {
    const Syntax::Names lists = [](const Impl& shell) { return shell.listNames(); };
    const Syntax::Names dataplanes = [](const Impl& shell) { return shell.dataplaneNames(); };

    // ---- top ----
    const Syntax::Run listBlock = [](Impl& shell, const Words& words) { shell.listBlock(words); };
    std::vector<Syntax> openList = families("edit an IPv4 list", "edit an IPv6 list", "edit a MAC list",
                                            {keyword("access-list", "a list, made when new", listNamed({}, true))});
    for (Syntax& family : openList) {
      family.topOnly = true;
      family.run = listBlock;
      family.next[0].leaves = true;
      family.next[0].next.back().names = lists;
    }

    std::vector<Syntax> negated = families("remove an IPv4 list", "remove an IPv6 list", "remove a MAC list",
                                           {keyword("access-list", "a list and its bindings", listNamed({}, true))});
    for (Syntax& family : negated) {
      family.run = listBlock;
      family.next[0].leaves = true;
      family.next[0].next.back().names = lists;
    }
    Syntax dataplaneName = value(WordKind::name, "NAME", "a dataplane name",
                                 {ending(keyword("capacity", "back to no limit")),
                                  ending(keyword("error", "back to programming what it is sent"))});
    dataplaneName.ends = true;
    dataplaneName.names = dataplanes;
    negated.push_back(runs([](Impl& shell, const Words& words) { shell.dataplane(words, true); },
                           keyword("dataplane", "remove a dataplane, or one of its settings", {dataplaneName})));

    Syntax settings = value(
        WordKind::name, "NAME", "a dataplane name",
        {keyword("waits", "whether sessions wait for it", onOff()),
         keyword("capacity", "how many entries it holds",
                 {ending(value(WordKind::number, "ENTRIES", "a number of entries"))}),
         keyword("delay", "how many events it takes to answer",
                 {ending(value(WordKind::number, "EVENTS", "a number of events"))}),
         keyword(
             "error", "refuse what it is sent, with this error",
             {ending(Syntax{
                 .kind = WordKind::name, .word = "TEXT", .help = "the error's text", .rest = Rest::text, .next = {}})}),
         ending(keyword("tick", "let one event pass")),
         ending(keyword("kernel", "one that also programs this network namespace's kernel (nf_tables)"))});
    settings.ends = true;
    settings.names = dataplanes;

    Syntax capability = value(WordKind::name, "CAPABILITY", "a capability (see show platform)", onOff());
    capability.names = [](const Impl&) { return Impl::capabilityNames(); };

    std::vector<Syntax> familiesEnding = families(
        "an IPv4 packet", "an IPv6 packet", "a MAC frame",
        {Syntax{.kind = WordKind::name,
                .word = "FIELD VALUE",
                .help = "src, dst, protocol, sport, dport, flags, icmp-type, icmp-code, dscp, ecn, ttl, hop-limit, "
                        "length, vlan, inner-vlan, vrf, ethertype or mpls, and its value",
                .rest = Rest::text,
                .ends = true,
                .next = {}}});
    for (Syntax& family : familiesEnding) family.ends = true;
    const Syntax packetInterface =
        keyword("interface", "the interface it arrives on or leaves by",
                {value(WordKind::name, "INTERFACE", "an interface name",
                       {keyword("in", "arriving", familiesEnding), keyword("out", "leaving", familiesEnding)})});
    Syntax packetDataplane = keyword("dataplane", "the dataplane to ask (the first one otherwise)",
                                     {value(WordKind::name, "NAME", "a dataplane name", {packetInterface})});
    packetDataplane.next[0].names = dataplanes;

    Syntax file = ending(value(WordKind::name, "FILE", "a file"));
    std::vector<Syntax> replaceFamilies =
        families("an IPv4 list", "an IPv6 list", "a MAC list",
                 {keyword("access-list", "the list to replace", listNamed({file}, false))});
    for (Syntax& family : replaceFamilies) family.next[0].next.back().names = lists;

    Syntax top;
    top.next = openList;
    top.next.push_back(keyword("no", "remove", negated));
    Syntax interface = runs([](Impl& shell, const Words& words) { shell.intf_ = InterfaceEdit{String(words[1])}; },
                            keyword("interface", "bind lists to an interface",
                                    {ending(value(WordKind::name, "NAME", "an interface name"))}));
    interface.leaves = interface.topOnly = true;
    top.next.push_back(interface);
    top.next.push_back(keyword("show", "show the configuration and the state", showCommands(false, lists)));
    top.next.push_back(runs(
        [](Impl& shell, const Words& words) { shell.platform(words); },
        keyword("platform", "what the platform can program",
                {keyword("all", "every capability", onOff()),
                 keyword("payload-capacity", "payload elements a rule may hold",
                         {keyword("ip", "in IPv4 rules", {ending(value(WordKind::number, "ELEMENTS", "a number"))}),
                          keyword("mac", "in MAC rules", {ending(value(WordKind::number, "ELEMENTS", "a number"))})}),
                 capability})));
    top.next.push_back(runs([](Impl& shell, const Words& words) { shell.dataplane(words, false); },
                            keyword("dataplane", "a dataplane, and how it answers", {settings})));
    top.next.push_back(
        runs([](Impl& shell, const Words& words) { shell.testPacket(words); },
             keyword("test", "check a packet against a dataplane",
                     {keyword("packet", "which entry a packet meets", {packetDataplane, packetInterface})})));
    top.next.push_back(runs([](Impl& shell, const Words&) { shell.write(); },
                            ending(keyword("write", "save the running configuration to the --config file"))));
    top.next.push_back(runs([](Impl& shell, const Words& words) { shell.replaceList(words); },
                            keyword("replace", "replace a whole list with the entries of a file", replaceFamilies)));
    top.next.push_back(runs([](Impl& shell, const Words& words) { shell.importOpenConfig(words); },
                            keyword("import", "apply an OpenConfig document",
                                    {keyword("openconfig", "an OpenConfig ACL document", {file})})));
    top.next.push_back(runs(
        [](Impl& shell, const Words& words) { shell.exportOpenConfig(words); },
        keyword("export", "the running lists as an OpenConfig document",
                {ending(keyword("openconfig", "an OpenConfig ACL document",
                                {ending(keyword("skip-inexact", "leave out the lists it cannot carry exactly", {file})),
                                 file}))})));
    Syntax abort = runs([](Impl& shell, const Words&) { shell.abortTop(); },
                        ending(keyword("abort", "drop the configuration session, or revert a refused change")));
    abort.topOnly = true;
    top.next.push_back(abort);
    Syntax configure = runs([](Impl& shell, const Words& words) { shell.openConfigSession(std::string(words[2])); },
                            keyword("configure", "open a configuration session",
                                    {keyword("session", "a candidate configuration, committed whole",
                                             {ending(value(WordKind::name, "NAME", "a session name"))})}));
    configure.topOnly = true;
    top.next.push_back(configure);
    Syntax commit = runs(
        [](Impl& shell, const Words& words) {
          if (!shell.config_) throw CommandError(words.column(0), "no configuration session to commit");
          shell.commitConfigSession(words.is(1, "force"));
        },
        ending(keyword("commit", "commit the configuration session",
                       {ending(keyword("force", "overwrite what changed since it opened"))})));
    commit.topOnly = true;
    top.next.push_back(commit);
    for (std::string_view word : {"exit", "quit"}) {
      Syntax leave =
          runs([](Impl& shell, const Words& words) { shell.leaveTop(words); }, ending(keyword(word, "leave aclsh")));
      leave.topOnly = true;
      top.next.push_back(leave);
    }
    Syntax end = runs([](Impl& shell, const Words& words) { shell.leaveTop(words); },
                      ending(keyword("end", "back to the top (where aclsh is)")));
    end.topOnly = true;
    top.next.push_back(end);

    // `do`: a command of the top that changes no mode (nor removes the list being edited).
    Syntax doTop = keyword("do", "run a command of the top");
    doTop.shifts = true;
    doTop.next = stayingInMode(top.next);

    // ---- a list ----
    const Syntax::Run edit = [](Impl& shell, const Words& words) { shell.editEntry(words, 0); };
    const Syntax::Run remove = [](Impl& shell, const Words& words) { shell.removeEntry(words, 1); };
    auto entries = [](bool sequenceAlone) {
      Syntax sequence = value(WordKind::number, "SEQ", "a sequence number");
      sequence.rest = Rest::entry;
      sequence.ends = sequenceAlone;
      std::vector<Syntax> words = {sequence};
      for (std::string_view word : {"permit", "deny", "remark"}) {
        words.push_back(Syntax{
            .kind = WordKind::whole, .word = word, .help = Text::keywordHelp(word), .rest = Rest::entry, .next = {}});
      }
      return words;
    };
    const Syntax::Run counters = [](Impl& shell, const Words& words) { shell.listFlag(words); };
    const std::vector<Syntax> flags = {
        runs(counters, keyword("counters", "count packets per entry",
                               {ending(keyword("per-entry", "one counter for each entry"))})),
        runs(counters, ending(keyword("fragment-rules", "match fragments by the rules' addresses")))};
    Syntax list;
    list.next = entries(false);
    for (Syntax& entry : list.next) entry.run = edit;
    std::vector<Syntax> unlisted = entries(true);
    for (Syntax& entry : unlisted) entry.run = remove;
    unlisted.insert(unlisted.end(), flags.begin(), flags.end());
    list.next.push_back(keyword("no", "remove an entry, or a setting", unlisted));
    list.next.insert(list.next.end(), flags.begin(), flags.end());
    list.next.push_back(runs([](Impl& shell, const Words& words) { shell.resequence(words); },
                             ending(keyword("resequence", "number the entries again (from 10, by 10)",
                                            {ending(value(WordKind::number, "START", "a first sequence number",
                                                          {ending(value(WordKind::number, "STEP", "a step"))}))}))));
    list.next.push_back(keyword("show", "show the list and the configuration", showCommands(true, lists)));
    list.next.push_back(runs([](Impl& shell, const Words&) { shell.abortList(); },
                             ending(keyword("abort", "drop the edit, commit nothing"))));
    for (std::string_view word : {"exit", "end"}) {
      list.next.push_back(runs([](Impl& shell, const Words&) { shell.commitList(); },
                               ending(keyword(word, "commit the list and go back to the top"))));
    }
    list.next.push_back(doTop);

    // ---- an interface ----
    std::vector<Syntax> bind = families(
        "bind an IPv4 list", "bind an IPv6 list", "bind a MAC list",
        {keyword("access-group", "the list filtering this interface",
                 {value(WordKind::name, "NAME", "a list name",
                        {ending(keyword("in", "arriving packets")), ending(keyword("out", "leaving packets"))})})});
    for (Syntax& family : bind) {
      family.run = [](Impl& shell, const Words& words) { shell.bind(words, false); };
      family.next[0].next[0].names = lists;
    }
    std::vector<Syntax> unbind = families(
        "unbind an IPv4 list", "unbind an IPv6 list", "unbind a MAC list",
        {keyword("access-group", "the list filtering this interface",
                 {ending(keyword("in", "whatever filters arriving packets")),
                  ending(keyword("out", "whatever filters leaving packets")),
                  value(WordKind::name, "NAME", "a list name",
                        {ending(keyword("in", "arriving packets")), ending(keyword("out", "leaving packets"))})})});
    for (Syntax& family : unbind) {
      family.run = [](Impl& shell, const Words& words) { shell.bind(words, true); };
      family.next[0].next[2].names = lists;
    }
    Syntax interfaceMode;
    interfaceMode.next = bind;
    interfaceMode.next.push_back(keyword("no", "unbind a list", unbind));
    interfaceMode.next.push_back(keyword("show", "show the configuration and the state", showCommands(false, lists)));
    for (std::string_view word : {"exit", "end"}) {
      interfaceMode.next.push_back(
          runs([](Impl& shell, const Words&) { shell.intf_.reset(); }, ending(keyword(word, "back to the top"))));
    }
    interfaceMode.next.push_back(doTop);
    return Grammar{std::move(top), std::move(list), std::move(interfaceMode)};
  }();
  return grammar;
}  // GCOVR_EXCL_BR_STOP

const Syntax& Shell::Impl::mode() const {
  const Grammar& all = grammar();
  return list_ ? all.list : intf_ ? all.interface : all.top;
}

namespace {

bool digits(std::string_view word) {
  return !word.empty() && word.find_first_not_of("0123456789") == std::string_view::npos;
}

bool isKeyword(const Syntax& syntax) {
  return syntax.kind == WordKind::keyword || syntax.kind == WordKind::whole;
}

// "a, b or c"
std::string alternatives(const std::vector<std::string_view>& items) {
  std::string text;
  for (std::size_t i = 0; i < items.size(); ++i) {
    if (i > 0) text += i + 1 == items.size() ? " or " : ", ";
    text += items[i];
  }
  return text;
}

std::string expected(const std::vector<const Syntax*>& open, bool orEnd) {
  std::vector<std::string_view> items;
  items.reserve(open.size() + 1);
  for (const Syntax* syntax : open) items.push_back(isKeyword(*syntax) ? syntax->word : syntax->help);
  if (orEnd) items.emplace_back("the end of the line");
  return "expected " + alternatives(items);
}

}  // namespace

Resolved Shell::Impl::resolve(const Syntax& root, Words& words, bool abbreviated) const {
  Resolved resolved;
  walk(root, words, abbreviated, true, resolved);
  return resolved;
}

void Shell::Impl::walk(const Syntax& root, Words& words, bool abbreviated, bool whole, Resolved& resolved) const {
  const Syntax* node = &root;
  for (std::size_t i = 0; node->rest == Rest::none; ++i) {
    std::vector<const Syntax*> open;
    for (const Syntax& next : node->next) {
      if (!next.sessionOnly || config_) open.push_back(&next);
    }
    const bool ends = node->ends || open.empty();
    if (i == words.size()) {
      if (!ends && whole) throw CommandError(words.column(i), expected(open, false));
      break;
    }
    const std::string_view word = words[i];
    const auto exactly = [&](const Syntax* s) {
      return (isKeyword(*s) && s->word == word) || (s->kind == WordKind::number && digits(word)) ||
             s->kind == WordKind::name;
    };
    const auto found = std::find_if(open.begin(), open.end(), exactly);
    const Syntax* match = found == open.end() ? nullptr : *found;
    if (!match && abbreviated) {
      std::vector<const Syntax*> starting;
      for (const Syntax* s : open) {
        if (isKeyword(*s) && s->word.starts_with(word)) starting.push_back(s);
      }
      if (starting.size() > 1) {
        std::vector<std::string_view> candidates;
        candidates.reserve(starting.size());
        for (const Syntax* s : starting) candidates.push_back(s->word);
        throw CommandError(words.column(i), "ambiguous " + std::string(word) + ": " + alternatives(candidates));
      }
      if (starting.size() == 1 && starting[0]->kind == WordKind::whole) {
        throw CommandError(words.column(i),
                           "expected " + std::string(starting[0]->word) + " (an entry's words are typed whole)");
      }
      if (starting.size() == 1) {
        match = starting[0];
        words.expand(i, match->word);
      }
    }
    if (!match)
      throw CommandError(words.column(i), open.empty() ? "expected the end of the line" : expected(open, ends));
    node = match;
    if (node->shifts) resolved.first = i + 1;
    if (node->run) resolved.run = node->run;
    if (node->leaves) resolved.leaves = true;
    if (node->rest == Rest::entry) resolved.entryAt = i;
  }
  resolved.last = node;
}

std::vector<std::pair<std::string, std::string>> Shell::Impl::choices(Words& words, std::string_view partial,
                                                                      bool forHelp) const {
  std::vector<std::pair<std::string, std::string>> found;
  Resolved at;
  walk(mode(), words, true, false, at);
  const Syntax& node = *at.last;
  const auto add = [&](std::string_view word, std::string_view help) {
    if (word.starts_with(partial)) found.emplace_back(word, help);
  };
  const auto placeholder = [&](std::string_view word, std::string_view help) {
    if (forHelp && partial.empty()) found.emplace_back(word, help);
  };
  if (node.rest == Rest::entry) {
    const Text::Choices next = Text::choicesAfter(words.from(at.entryAt), list_->type, list_->standard);
    for (const Text::Choice& choice : next.next) {
      if (choice.kind == Text::Choice::Kind::value) {
        placeholder("<" + choice.text + ">", "");
      } else {
        add(choice.text, choice.help);
      }
    }
    if (next.complete || (node.ends && at.entryAt + 1 == words.size())) placeholder("<cr>", "");
    return found;
  }
  if (node.rest == Rest::text) {
    placeholder(node.word, node.help);
    placeholder("<cr>", "");
    return found;
  }
  for (const Syntax& next : node.next) {
    if (next.sessionOnly && !config_) continue;
    if (isKeyword(next)) {
      add(next.word, next.help);
    } else {
      placeholder(next.word, next.help);
      if (next.names && !forHelp) {
        for (const std::string& name : next.names(*this)) add(name, "");
      }
    }
  }
  if (&node != &mode() && (node.ends || node.next.empty())) placeholder("<cr>", "");
  return found;
}

std::vector<std::string> Shell::Impl::complete(std::string_view line) const {
  const std::size_t partialAt = partialStart(line);
  std::vector<std::string> words;
  try {
    Words before(line.substr(0, partialAt));
    for (auto& [word, help] : choices(before, line.substr(partialAt), false)) words.push_back(std::move(word));
  } catch (const CommandError&) {
    // Nothing completes a line that has gone wrong already.
  }
  return words;
}

std::string Shell::Impl::help(std::string_view line) const {
  const std::size_t partialAt = partialStart(line);
  try {
    Words before(line.substr(0, partialAt));
    const auto found = choices(before, line.substr(partialAt), true);
    std::size_t width = 0;
    for (const auto& [word, help] : found) {
      if (!help.empty()) width = std::max(width, word.size());
    }
    std::string text;
    for (const auto& [word, help] : found) {
      text += "  " + word;
      if (!help.empty()) text += std::string(width - word.size() + 2, ' ') + help;
      text += '\n';
    }
    return text.empty() ? "% nothing starts with " + std::string(line.substr(partialAt)) + " here\n" : text;
  } catch (const CommandError& e) {
    return "% " + std::string(e.what()) + (e.column() > 0 ? " at column " + std::to_string(e.column()) : "") + "\n";
  }
}

std::vector<std::string> Shell::Impl::listNames() const {
  std::vector<std::string> names;
  for (AclType type : {AclType::ip, AclType::ipv6, AclType::mac}) {
    for (const Ptr<Acl::AclConfig>& list : library_.lists(type)) names.emplace_back(list->name().view());
  }
  std::sort(names.begin(), names.end());
  names.erase(std::unique(names.begin(), names.end()), names.end());
  return names;
}

std::vector<std::string> Shell::Impl::dataplaneNames() const {
  std::vector<std::string> names;
  for (const auto& [name, dataplane] : dataplanes_) names.push_back(name);
  return names;
}

}  // namespace aclsh
