#include "tests/support/model/ReferenceModel.h"

#include <vector>

namespace model {

using namespace AclApi;

const Entry* List::at(U32 place) const {
  auto it = places.find(place);
  return it == places.end() ? nullptr : &it->second;
}

bool List::sameRules(const List& other) const {
  auto rules = [](const List& list) {
    std::vector<int> all;
    for (const auto& [place, entry] : list.places) {
      if (!entry.remark) all.push_back(entry.rule);
    }
    return all;
  };
  return counters == other.counters && fragments == other.fragments && rules(*this) == rules(other);
}

World::World() {
  dataplanes[0].name = "dp1";
  dataplanes[1].name = "dp2";
  // A read-only IPv4 list the hardware has programmed: rules at 10 and 20, a remark between.
  AclState ro;
  ro.readonly = true;
  List list;
  list.places[10] = ruleEntry(0);
  list.places[15] = remarkEntry("r0");
  list.places[20] = ruleEntry(1);
  ro.current = newVersion(list, true);
  ro.versions[ro.current->token] = ro.current;
  acls[{AclType::ip, "ro"}] = ro;
}

AclState* World::acl(AclType type, const std::string& name) {
  auto it = acls.find({type, name});
  return it == acls.end() ? nullptr : &it->second;
}

bool World::readOnly(AclType type, const std::string& name) {
  const AclState* a = acl(type, name);
  return a && a->readonly;
}

VersionPtr World::newVersion(const List& list, bool committed) {
  return std::make_shared<Version>(Version{nextToken_++, list, committed});
}

namespace {
void placeWritten(Session& s, U32 place) {
  if (place > s.lastCache) s.lastCache = place;
}
void placeEmptied(Session& s, U32 place) {
  if (place == s.lastCache) s.lastCache = 0;
}
U32 lastSequence(Session& s) {
  if (s.lastCache == 0) s.lastCache = s.scratchpad->last();
  return s.lastCache;
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
    for (const auto& [place, entry] : s.scratchpad->places) placeWritten(s, place);
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
    for (const auto& [place, entry] : sp.places) {
      if (!entry.remark && entry.rule == content) return s.state = succeeded;
    }
    sequence = last + 10;
  }
  if (const Entry* there = sp.at(sequence)) {
    if (there->remark) return s.state = errRuleExists;
    return s.state = there->rule == content ? succeeded : errRuleExists;
  }
  if (readOnly(s.type, s.name)) return s.state = errReadOnly;
  sp.places[sequence] = ruleEntry(content);
  placeWritten(s, sequence);
  return s.state = succeeded;
}

ApiState World::addRemark(Session& s, const std::string& text, U32 sequence) {
  if (!s.scratchpad) return s.state = failed;
  List& sp = *s.scratchpad;
  U32 where = sequence;
  if (sequence == 0) {
    for (const auto& [place, entry] : sp.places) {
      if (entry.remark && entry.text == text) return s.state = succeeded;
    }
    where = lastSequence(s) + 10;
  }
  // Occupancy is judged at the place asked for, even when that was 0.
  if (const Entry* there = sp.at(sequence)) {
    if (there->remark) return s.state = there->text == text ? succeeded : errRuleExists;
    return s.state = errRuleExists;
  }
  const Entry* before = sp.at(where);
  if (!before || !(*before == remarkEntry(text))) placeWritten(s, where);  // a change notifies
  sp.places[where] = remarkEntry(text);
  return s.state = succeeded;
}

ApiState World::removeRemark(Session& s, const std::string& text, U32 sequence) {
  if (!s.scratchpad) return s.state = failed;
  auto& places = s.scratchpad->places;
  for (auto it = places.begin(); it != places.end(); ++it) {
    const bool chosen = sequence == 0 ? it->second.remark && it->second.text == text : it->first == sequence;
    if (chosen) {
      if (it->second.remark) {
        placeEmptied(s, it->first);
        places.erase(it);
      }
      break;
    }
  }
  return s.state = succeeded;
}

ApiState World::removeRange(Session& s, U32 start, U32 end) {
  if (!s.scratchpad) return s.state = failed;
  if (readOnly(s.type, s.name)) return s.state = errReadOnly;
  auto& places = s.scratchpad->places;
  if (start > end) return s.state = succeeded;
  for (auto it = places.lower_bound(start); it != places.upper_bound(end);) {
    placeEmptied(s, it->first);
    it = places.erase(it);
  }
  return s.state = succeeded;
}

ApiState World::removeByContent(Session& s, AclType family, int rule) {
  if (!s.scratchpad) return s.state = failed;
  if (readOnly(family, s.name)) return s.state = errReadOnly;
  if (family != s.type) return s.state = succeeded;  // another family's records are not in this list
  auto& places = s.scratchpad->places;
  for (auto it = places.begin(); it != places.end(); ++it) {
    if (!it->second.remark && it->second.rule == rule) {
      placeEmptied(s, it->first);
      places.erase(it);
      break;
    }
  }
  return s.state = succeeded;
}

ApiState World::resequence(Session& s, U32 start, U32 increment) {
  if (!s.scratchpad) return s.state = failed;
  auto& places = s.scratchpad->places;
  if (places.empty()) return s.state = succeeded;
  const std::uint64_t last = start + std::uint64_t(places.size() - 1) * increment;
  if (last > kTop) return s.state = errSequenceOutOfRange;
  std::map<U32, Entry> renumbered;
  U32 next = start;
  for (const auto& [place, entry] : places) {
    renumbered[next] = entry;
    next += increment;
  }
  places = std::move(renumbered);
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
  if (!live) {
    live = &acls[{s.type, s.name}];
    live->standard = s.standard;
  }
  const List& sp = *s.scratchpad;
  const bool wholeNewVersion = !s.origAcl || !s.orig || !s.orig->committed || sp.counters != s.orig->list.counters ||
                               sp.fragments != s.orig->list.fragments || !live->current->list.sameRules(sp);
  if (!wholeNewVersion) {
    live->current->list = sp;  // only places and remarks differ: patched in place, kept current
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

// ---- configuration sessions ----------------------------------------------------------------

bool World::configDropFirstRule(AclType type, const std::string& name) {
  AclState* live = acl(type, name);
  if (!live) {  // the session creates a plain ACL with an empty version
    AclState& created = acls[{type, name}];
    created.current = newVersion(List(), true);
    created.versions[created.current->token] = created.current;
    return true;
  }
  List list = live->current->list;
  for (auto it = list.places.begin(); it != list.places.end(); ++it) {
    if (!it->second.remark) {
      list.places.erase(it);
      // Different rules: a whole new version replaces the current one.
      const int old = live->current->token;
      live->current = newVersion(list, true);
      live->versions[live->current->token] = live->current;
      live->versions.erase(old);
      return true;
    }
  }
  return false;
}

bool World::configRenumber(AclType type, const std::string& name) {
  AclState* live = acl(type, name);
  if (!live || live->current->list.places.empty() || live->current->list.last() == kTop) return false;
  std::map<U32, Entry> shifted;
  for (const auto& [place, entry] : live->current->list.places) shifted[place + 1] = entry;
  live->current->list.places = std::move(shifted);  // same rules: patched in place
  return true;
}

bool World::configDeleteAcl(AclType type, const std::string& name) {
  return acls.erase({type, name}) > 0;
}

bool World::configToggleBinding(AclType type, AclDirection direction, const std::string& intf,
                                const std::string& name) {
  const BindingKey key{type, direction, intf};
  if (!bindings.erase(key)) bindings[key] = name;
  return true;
}

}  // namespace model
