#include "tests/support/model/ReferenceModel.h"

#include <vector>

namespace model {

using namespace AclApi;

U32 List::last() const {
  const U32 rule = rules.empty() ? 0 : rules.rbegin()->first;
  const U32 remark = remarks.empty() ? 0 : remarks.rbegin()->first;
  return std::max(rule, remark);
}

bool List::sameRules(const List& other) const {
  if (counters != other.counters || fragments != other.fragments || rules.size() != other.rules.size()) return false;
  auto it = other.rules.begin();
  for (const auto& [place, rule] : rules) {
    if (rule != (it++)->second) return false;
  }
  return true;
}

World::World() {
  dataplanes[0].name = "dp1";
  dataplanes[1].name = "dp2";
  // A read-only IPv4 list the hardware has programmed: rules at 10 and 20, a remark between.
  List list;
  list.rules[10] = 0;
  list.remarks[15] = "r0";
  list.rules[20] = 1;
  AclState& ro = createAcl(AclType::ip, "ro", false);
  ro.readonly = true;
  ro.current = newVersion(list, true);
  ro.versions[ro.current->token] = ro.current;
}

AclState* World::acl(AclType type, const std::string& name) {
  auto it = acls.find({type, name});
  return it == acls.end() ? nullptr : &it->second;
}

AclState& World::createAcl(AclType type, const std::string& name, bool standard) {
  AclState& created = acls[{type, name}];
  created = AclState();
  created.standard = standard;
  return created;
}

bool World::readOnly(AclType type, const std::string& name) {
  const AclState* a = acl(type, name);
  return a && a->readonly;
}

VersionPtr World::newVersion(const List& list, bool committed) {
  return std::make_shared<Version>(Version{nextToken_++, list, committed});
}

namespace {

// What the scratchpad's observer does at every change of a place.
void placeChanged(Session& s, U32 place) {
  const bool present = s.scratchpad->holds(place);
  if (present && place > s.lastCache) {
    s.lastCache = place;
  } else if (!present && place == s.lastCache) {
    s.lastCache = 0;
  }
}

U32 lastSequence(Session& s) {
  if (s.lastCache == 0) s.lastCache = s.scratchpad->last();
  return s.lastCache;
}

void count(Session& s, const RuleKey& key, int delta) {
  if (s.countsKept) s.ruleCounts[key] += static_cast<U32>(delta);
}

void count(Session& s, const std::string& remark, int delta) {
  if (s.countsKept) s.remarkCounts[remark] += static_cast<U32>(delta);
}

// Counting starts at the first automatic number, from what the places hold then.
void keepCounts(Session& s) {
  if (s.countsKept) return;
  s.countsKept = true;
  for (const auto& [place, rule] : s.scratchpad->rules) count(s, RuleKey{s.type, rule}, 1);
  for (const auto& [place, text] : s.scratchpad->remarks) count(s, text, 1);
}

U32 countOf(const Session& s, const RuleKey& key) {
  auto it = s.ruleCounts.find(key);
  return it == s.ruleCounts.end() ? 0 : it->second;
}

}  // namespace

void World::openSession(int slot, const std::string& name, AclType type, ApiType api, bool standard) {
  Session s;
  s.name = name;
  s.type = type;
  s.api = api;
  s.standard = standard;
  if (api == commit_) {
    s.scratchpad = List();
    s.scratchpadToken = nextToken_++;
    if (const AclState* a = acl(type, name)) {
      s.origAcl = true;
      s.orig = a->current;
      if (a->current) s.scratchpad = a->current->list;
    }
    // The copy writes every place, rules first, each heard by the scratchpad's observer.
    for (const auto& [place, rule] : s.scratchpad->rules) placeChanged(s, place);
    for (const auto& [place, text] : s.scratchpad->remarks) placeChanged(s, place);
  }
  sessions[static_cast<std::size_t>(slot)] = std::move(s);
}

// ---- editing the scratchpad ----------------------------------------------------------------

ApiState World::addRule(Session& s, AclType family, U32 sequence, int rule) {
  if (!s.scratchpad) return failed;  // the one refusal that leaves the state alone
  List& sp = *s.scratchpad;
  const int content = family == s.type ? rule : kDefaultRule;  // the other families' records are defaults
  if (sequence == 0) {
    const U32 last = lastSequence(s);
    if (last > kTop - 10) return s.state = errSequenceOutOfRange;
    keepCounts(s);
    if (countOf(s, {s.type, content}) != 0) return s.state = succeeded;  // a duplicate, as counted
    sequence = last + 10;
  }
  if (auto there = sp.rules.find(sequence); there != sp.rules.end()) {
    return s.state = there->second == content ? succeeded : errRuleExists;
  }
  if (sp.remarks.contains(sequence)) return s.state = errRuleExists;
  if (readOnly(s.type, s.name)) return s.state = errReadOnly;
  sp.rules[sequence] = content;
  placeChanged(s, sequence);
  count(s, {s.type, content}, 1);
  return s.state = succeeded;
}

ApiState World::addRemark(Session& s, const std::string& text, U32 sequence) {
  if (!s.scratchpad) return s.state = failed;
  List& sp = *s.scratchpad;
  U32 where = sequence;
  if (sequence == 0) {
    keepCounts(s);
    if (auto it = s.remarkCounts.find(text); it != s.remarkCounts.end() && it->second != 0) {
      return s.state = succeeded;
    }
    where = lastSequence(s) + 10;  // wraps past the top
  }
  // Occupancy is judged at the place asked for, even when that was 0.
  if (auto there = sp.remarks.find(sequence); there != sp.remarks.end()) {
    return s.state = there->second == text ? succeeded : errRuleExists;
  }
  if (sp.rules.contains(sequence)) return s.state = errRuleExists;
  // A remark already there is replaced uncounted; a rule there stays beside it.
  auto there = sp.remarks.find(where);
  const bool changes = there == sp.remarks.end() || there->second != text;
  sp.remarks[where] = text;
  if (changes) placeChanged(s, where);
  count(s, text, 1);
  return s.state = succeeded;
}

ApiState World::removeRemark(Session& s, const std::string& text, U32 sequence) {
  if (!s.scratchpad) return s.state = failed;
  auto& remarks = s.scratchpad->remarks;
  if (sequence == 0) {
    for (auto it = remarks.begin(); it != remarks.end(); ++it) {
      if (it->second != text) continue;
      const U32 place = it->first;
      count(s, text, -1);
      remarks.erase(it);
      placeChanged(s, place);
      break;
    }
  } else {
    // By place, whatever the text: where no remark stands the empty remark's count drops.
    auto it = remarks.find(sequence);
    count(s, it == remarks.end() ? std::string() : it->second, -1);
    if (it != remarks.end()) {
      remarks.erase(it);
      placeChanged(s, sequence);
    }
  }
  return s.state = succeeded;
}

ApiState World::removeRange(Session& s, U32 start, U32 end) {
  if (!s.scratchpad) return s.state = failed;
  if (readOnly(s.type, s.name)) return s.state = errReadOnly;
  List& sp = *s.scratchpad;
  if (start > end) return s.state = succeeded;
  // Rules first, then remarks, as the observer hears them.
  for (auto it = sp.rules.lower_bound(start); it != sp.rules.end() && it->first <= end;) {
    const U32 place = it->first;
    count(s, {s.type, it->second}, -1);
    it = sp.rules.erase(it);
    placeChanged(s, place);
  }
  for (auto it = sp.remarks.lower_bound(start); it != sp.remarks.end() && it->first <= end;) {
    const U32 place = it->first;
    count(s, it->second, -1);
    it = sp.remarks.erase(it);
    placeChanged(s, place);
  }
  return s.state = succeeded;
}

ApiState World::removeByContent(Session& s, AclType family, int rule) {
  if (!s.scratchpad) return s.state = failed;
  if (readOnly(family, s.name)) return s.state = errReadOnly;
  auto& rules = s.scratchpad->rules;
  // Each place's record is read from the family asked for; this list has no records of other
  // families, so there every place reads as that family's default rule: the first place
  // holding a rule goes, and its own record stays behind without a place.
  const bool everyPlace = family != s.type && rule == kDefaultRule;
  for (auto it = rules.begin(); it != rules.end(); ++it) {
    if (!everyPlace && (family != s.type || it->second != rule)) continue;
    const U32 place = it->first;
    const int content = it->second;
    count(s, {family, rule}, -1);
    rules.erase(it);
    placeChanged(s, place);
    if (everyPlace) s.scratchpad->unplaced.insert(content);
    break;
  }
  return s.state = succeeded;
}

ApiState World::resequence(Session& s, U32 start, U32 increment) {
  if (!s.scratchpad) return s.state = failed;
  List& sp = *s.scratchpad;
  const std::uint64_t n = sp.rules.size() + sp.remarks.size();
  if (n == 0) return s.state = succeeded;
  const std::uint64_t last = start + (n - 1) * std::uint64_t{increment};
  if (last > kTop) return s.state = errSequenceOutOfRange;
  // Old order kept, a remark before a rule at the same place; an entry written where an
  // earlier one of its kind went replaces it (only an increment of 0 does that), and a
  // replaced rule's record stays without a place.
  std::map<U32, int> rules;
  std::map<U32, std::string> remarks;
  auto rule = sp.rules.begin();
  auto remark = sp.remarks.begin();
  U32 next = start;
  while (rule != sp.rules.end() || remark != sp.remarks.end()) {
    if (remark == sp.remarks.end() || (rule != sp.rules.end() && rule->first < remark->first)) {
      if (auto replaced = rules.find(next); replaced != rules.end()) sp.unplaced.insert(replaced->second);
      rules[next] = (rule++)->second;
    } else {
      remarks[next] = (remark++)->second;
    }
    next += increment;
  }
  sp.rules = std::move(rules);
  sp.remarks = std::move(remarks);
  s.lastCache = static_cast<U32>(last);
  return s.state = succeeded;
}

ApiState World::flag(Session& s, bool counters, bool value) {
  if (!s.scratchpad) return s.state = failed;
  (counters ? s.scratchpad->counters : s.scratchpad->fragments) = value;
  return s.state = succeeded;
}

// ---- commit, revert, remove ----------------------------------------------------------------

ApiState World::commit(Session& s, bool cleanup) {
  if (!s.scratchpad) return s.state = succeeded;
  AclState* live = acl(s.type, s.name);
  if (!s.origAcl && live) return s.state = errSessionCreate;
  if (s.origAcl && !live) return s.state = errSessionDelete;
  if (live && s.orig && live->current->token != s.orig->token) return s.state = errSessionModify;
  if (!live) live = &createAcl(s.type, s.name, s.standard);
  const List& sp = *s.scratchpad;
  const bool wholeNewVersion = !s.origAcl || !s.orig || !s.orig->committed || sp.counters != s.orig->list.counters ||
                               sp.fragments != s.orig->list.fragments || !live->current->list.sameRules(sp);
  if (!wholeNewVersion) {
    // Only places and remarks differ: the current version takes them and stays current.
    live->current->list.rules = sp.rules;
    live->current->list.remarks = sp.remarks;
    return s.state = succeeded;
  }
  VersionPtr& installed = live->versions[s.scratchpadToken];
  if (!installed) installed = std::make_shared<Version>(Version{s.scratchpadToken, List(), false});
  installed->list = sp;
  live->current = installed;
  if (waitForHw(s) == succeeded) {
    s.scratchpad.reset();
    installed->committed = true;
  }
  if (cleanup) {  // the replaced version goes and the session lets go of everything
    if (s.orig && live->current != s.orig) live->versions.erase(s.orig->token);
    s.scratchpad.reset();
    s.orig.reset();
    s.origAcl = false;
  }
  return s.state;
}

ApiState World::revert(Session& s) {
  if (s.api == commit_) {
    if (!s.scratchpad) return s.state;
    if (!s.orig) {
      acls.erase({s.type, s.name});
      return s.state = succeeded;
    }
    AclState* live = acl(s.type, s.name);
    if (live && live->versions.contains(s.orig->token)) {
      live->current = live->versions[s.orig->token];
      live->versions.erase(s.scratchpadToken);
      return waitForHw(s);
    }
    if (live) live->versions.erase(s.scratchpadToken);
    return s.state = succeeded;
  }
  if (s.api == attach_ || s.api == detach_) {
    const BindingKey key{s.type, s.direction, s.intf};
    if (s.origAclName.empty()) {
      bindings.erase(key);
    } else {
      bindings[key] = s.origAclName;
    }
    return waitForHw(s);
  }
  return s.state;
}

ApiState World::remove(Session& s) {
  const AclState* live = acl(s.type, s.name);
  if (!live) return s.state = errAclDoesNotExist;
  if (live->standard != s.standard) return s.state = errStandardAcl;
  if (live->readonly) return s.state = errReadOnly;
  acls.erase({s.type, s.name});
  s.scratchpad.reset();
  s.orig.reset();
  s.origAcl = false;
  return s.state = succeeded;
}

ApiState World::attach(Session& s, const std::string& intf, AclDirection direction) {
  const BindingKey key{s.type, direction, intf};
  auto bound = bindings.find(key);
  s.origAclName = bound == bindings.end() ? "" : bound->second;
  s.intf = intf;
  s.direction = direction;
  bindings[key] = s.name;
  return waitForHw(s);
}

ApiState World::detach(Session& s, const std::string& intf, AclDirection direction) {
  const BindingKey key{s.type, direction, intf};
  auto bound = bindings.find(key);
  const std::string name = bound == bindings.end() ? "" : bound->second;
  const bool removes = !name.empty() && (s.name.empty() || s.name == name);
  if (removes) s.origAclName = name;
  s.intf = intf;
  s.direction = direction;
  if (!removes) return s.state = succeeded;  // nothing bound, or another ACL: not an error
  bindings.erase(key);
  return waitForHw(s);
}

// ---- the hardware wait ---------------------------------------------------------------------

ApiState World::waitForHw(Session& s) {
  for (const Dataplane& dp : dataplanes) {
    if (dp.waits) {
      requestTime = clock;
      return s.state = waitingForHw;
    }
  }
  return s.state = succeeded;
}

void World::dataplaneTimeIs(int which, double time) {
  Dataplane& changed = dataplanes[static_cast<std::size_t>(which)];
  if (changed.time == time) return;  // no change, no notification
  changed.time = time;
  reevaluate();
}

void World::reevaluate() {
  for (auto& slot : sessions) {
    if (!slot || slot->state != waitingForHw) continue;
    Session& s = *slot;
    bool caughtUp = true;
    for (const Dataplane& dp : dataplanes) caughtUp = caughtUp && !(dp.waits && dp.time < requestTime);
    if (!caughtUp) continue;
    for (const Dataplane& dp : dataplanes) {
      if (dp.waits && !dp.errors.empty()) {
        s.errString[dp.name] = dp.errors.begin()->second;
        s.state = errHw;
      }
    }
    if (s.state == errHw) continue;
    if (AclState* live = acl(s.type, s.name); live && live->current) live->current->committed = true;
    s.state = succeeded;
  }
}

}  // namespace model
