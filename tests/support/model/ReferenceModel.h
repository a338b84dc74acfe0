// The reference model: what a sequence of edit-session, dataplane and configuration-session
// operations must do, written as plainly as possible over standard containers. It knows
// nothing of the entity framework; the property test and the fuzzer run the library and this
// model side by side and compare them after every step.
//
// A list is an ordered map of places; a rule is represented by a small content number
// (kDefaultRule is the family's default record), a remark by its text. Versions are shared
// objects, as in the library, so that "the same version" means the same object and a
// version can stay current after it has left its ACL's table.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <utility>

#include "aclkit/Acl/AclApiSm.h"

namespace model {

using Acl::AclDirection;
using Acl::AclType;
using Acl::U32;
using AclApi::ApiState;
using AclApi::ApiType;

inline constexpr int kDefaultRule = -1;
inline constexpr U32 kTop = 4294967295u;

struct Entry {
  bool remark = false;
  int rule = kDefaultRule;  // the content number of a rule
  std::string text;         // the text of a remark
  friend bool operator==(const Entry&, const Entry&) = default;
};
inline Entry ruleEntry(int rule) {
  Entry e;
  e.rule = rule;
  return e;
}
inline Entry remarkEntry(std::string text) {
  Entry e;
  e.remark = true;
  e.text = std::move(text);
  return e;
}

struct List {
  std::map<U32, Entry> places;
  bool counters = false;
  bool fragments = false;
  friend bool operator==(const List&, const List&) = default;

  [[nodiscard]] U32 last() const { return places.empty() ? 0 : places.rbegin()->first; }
  [[nodiscard]] const Entry* at(U32 place) const;
  // Same rule contents in the same order, and the same flags (what decides a new version).
  [[nodiscard]] bool sameRules(const List& other) const;
};

struct Version {
  int token = 0;  // the version's identity, unique for the model's lifetime
  List list;
  bool committed = false;
};
using VersionPtr = std::shared_ptr<Version>;

struct AclState {
  bool standard = false;
  bool readonly = false;
  VersionPtr current;
  std::map<int, VersionPtr> versions;  // by token
};

struct Dataplane {
  std::string name;
  bool waits = false;
  double time = 0;
  std::map<std::string, std::string> errors;
};

struct Session {
  std::string name;
  AclType type = AclType::ip;
  ApiType api = AclApi::commit_;
  bool standard = false;
  ApiState state = AclApi::ready;
  std::optional<List> scratchpad;
  int scratchpadToken = 0;
  // The cached last sequence: a place written above it becomes it, even when it was 0 with
  // higher entries standing above; it drops to 0 when its own place empties; 0 is worked out
  // again from rules and remarks when an automatic number needs it.
  U32 lastCache = 0;
  bool origAcl = false;  // the ACL existed when the scratchpad was made
  VersionPtr orig;       // its current version then
  std::string intf;
  AclDirection direction = AclDirection::in;
  std::string origAclName;
  std::map<std::string, std::string> errString;
};

// The last sequence an automatic number would start from, without caching it.
inline U32 lastSequenceOf(const Session& s) {
  return s.lastCache != 0 || !s.scratchpad ? s.lastCache : s.scratchpad->last();
}

using AclKey = std::pair<AclType, std::string>;
using BindingKey = std::tuple<AclType, AclDirection, std::string>;

class World {
 public:
  static constexpr int kSessions = 3;
  World();

  std::map<AclKey, AclState> acls;
  std::map<BindingKey, std::string> bindings;
  std::array<Dataplane, 2> dataplanes;
  std::array<std::optional<Session>, kSessions> sessions;
  double requestTime = 0;
  double clock = 100;  // the library's clock is driven from here

  [[nodiscard]] AclState* acl(AclType type, const std::string& name);

  void openSession(int slot, const std::string& name, AclType type, ApiType api, bool standard);

  // Editing; `family` is the family of the entry point called, `rule` a content number.
  ApiState addRule(Session& s, AclType family, U32 sequence, int rule);
  ApiState addRemark(Session& s, const std::string& text, U32 sequence);
  ApiState removeRemark(Session& s, const std::string& text, U32 sequence);
  ApiState removeRange(Session& s, U32 start, U32 end);
  ApiState removeByContent(Session& s, AclType family, int rule);
  ApiState resequence(Session& s, U32 start, U32 increment);
  ApiState flag(Session& s, bool counters, bool value);

  ApiState commit(Session& s, bool cleanup);
  ApiState revert(Session& s);
  ApiState remove(Session& s);
  ApiState attach(Session& s, const std::string& intf, AclDirection direction);
  ApiState detach(Session& s, const std::string& intf, AclDirection direction);

  // A dataplane's update time changes; waiting sessions re-evaluate.
  void dataplaneTimeIs(int dp, double time);

  // Configuration sessions, opened, edited and committed in one step; true when the running
  // configuration changed.
  bool configDropFirstRule(AclType type, const std::string& name);
  bool configRenumber(AclType type, const std::string& name);
  bool configDeleteAcl(AclType type, const std::string& name);
  bool configToggleBinding(AclType type, AclDirection direction, const std::string& intf, const std::string& name);

 private:
  ApiState waitForHw(Session& s);
  bool readOnly(AclType type, const std::string& name);
  VersionPtr newVersion(const List& list, bool committed);
  int nextToken_ = 1;
};

}  // namespace model
