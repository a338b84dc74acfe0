// The reference model: what a sequence of edit-session and dataplane operations must do,
// written as plainly as possible over standard containers. It knows nothing of the entity
// framework; the property test and the fuzzer run the library and this model side by side and
// compare them after every step.
//
// A list holds rules and remarks by place, as the library does, in two maps: a place may
// hold both (an automatic remark number that wrapped past the top lands where it lands), and
// a rule record may be left without a place (a resequence by 0 writes every entry to one
// place; a by-content removal through another family's default rule frees a place and
// leaves its record). A rule is represented by a small content number (kDefaultRule is the
// family's default record), a remark by its text. Versions are shared objects, as in the
// library, so that "the same version" means the same object and a version can stay current
// after it has left its ACL's table.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
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

struct List {
  std::map<U32, int> rules;            // place -> content number
  std::map<U32, std::string> remarks;  // place -> text
  std::multiset<int> unplaced;         // rule records no place names
  bool counters = false;
  bool fragments = false;
  friend bool operator==(const List&, const List&) = default;

  // The highest place of a rule or a remark, 0 when there is none.
  [[nodiscard]] U32 last() const;
  [[nodiscard]] bool holds(U32 place) const { return rules.contains(place) || remarks.contains(place); }
  [[nodiscard]] bool empty() const { return rules.empty() && remarks.empty(); }
  // Same rule contents in place order, and the same flags (what decides a new version).
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

// A content count of the session: a rule record of a family, by content number.
using RuleKey = std::pair<AclType, int>;

struct Session {
  std::string name;
  AclType type = AclType::ip;
  ApiType api = AclApi::commit_;
  bool standard = false;
  ApiState state = AclApi::ready;
  std::optional<List> scratchpad;
  int scratchpadToken = 0;
  // The cached last sequence: at each change of a place it becomes the place when the place
  // is in use and above it, and 0 when the place is empty and equal to it; 0 is worked out
  // again from rules and remarks when an automatic number needs it.
  U32 lastCache = 0;
  // The content counts, kept from the first automatic number on: +1 for what is written,
  // -1 for what a removal names (also when it names nothing), wrapping as unsigned 32-bit.
  bool countsKept = false;
  std::map<RuleKey, U32> ruleCounts;
  std::map<std::string, U32> remarkCounts;
  bool origAcl = false;  // the ACL existed when the scratchpad was made
  VersionPtr orig;       // its current version then
  std::string intf;
  AclDirection direction = AclDirection::in;
  std::string origAclName;
  std::map<std::string, std::string> errString;
};

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
  // Waiting sessions re-evaluate the dataplanes' reports as they stand.
  void reevaluate();

 private:
  ApiState waitForHw(Session& s);
  bool readOnly(AclType type, const std::string& name);
  AclState& createAcl(AclType type, const std::string& name, bool standard);
  VersionPtr newVersion(const List& list, bool committed);
  int nextToken_ = 1;
};

}  // namespace model
