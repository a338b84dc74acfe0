#include "tests/support/SessionInvariants.h"

#include <tuple>
#include <unordered_map>

#include "aclkit/model/Family.h"
#include "aclkit/platform/fwk/Strep.h"

namespace AclApi {

using namespace Acl;

namespace {

template <class Key>
using Counts = std::unordered_map<Key, U32, fwk::Hash<Key>>;

template <class Key>
void compareCounts(const char* mapName, const fwk::HashMap<Key, U32>& stored, const Counts<Key>& expected,
                   std::vector<std::string>& out) {
  for (const auto& [key, count] : expected) {
    U32 have = stored.valueOr(key);
    if (have != count) {
      out.push_back(std::string(mapName) + ": " + fwk::strep(key) + " counted " + std::to_string(have) +
                    ", scratchpad holds " + std::to_string(count));
    }
  }
  for (const auto& [key, count] : stored) {
    if (count != 0 && !expected.contains(key)) {
      out.push_back(std::string(mapName) + ": " + fwk::strep(key) + " counted " + std::to_string(count) +
                    ", scratchpad holds none");
    }
  }
}

template <class Map>
void countFamily(const AclSubConfig& sp, const Map& byId, Counts<typename Map::mapped_type>& counts,
                 std::vector<std::string>& out, bool requireRecords) {
  for (const auto& [sequence, id] : sp.ruleBySequence()) {
    if (const auto* rule = byId.find(id)) {
      ++counts[*rule];
    } else if (requireRecords) {
      out.push_back("rule at " + std::to_string(sequence) + " has no record");
    }
  }
}

}  // namespace

std::vector<std::string> invariantViolations(const ApiSm& session) {
  std::vector<std::string> out;
  // Reactors watch exactly what the session holds: a reactor left on a version or record the
  // session let go of would act on a dead entity.
  for (const auto& [name, entry] : session.statusDpEntry()) {
    const Ptr<const StatusDp>* record = session.statusDp().find(name);
    if (!record || entry->statusDp() != *record || entry->notifier() != record->get()) {
      out.push_back("the status reactor of " + std::string(name.view()) + " watches another record");
    }
  }
  const Ptr<AclSubConfig>& sp = session.spAclSubConfig();
  if (session.scratchpadReactor_.notifier() != sp.get()) out.push_back("the scratchpad reactor watches another entity");
  if (!sp) return out;

  // The cached last sequence is 0 or a place in use: it only ever takes a place just written
  // or found, and drops to 0 when that place empties. It may lie below higher entries.
  const U32 cached = session.spLastSequenceNumber();
  if (cached != 0 && !sp->ruleBySequence().contains(cached) && !sp->remarkBySequence().contains(cached)) {
    out.push_back("spLastSequenceNumber " + std::to_string(cached) + " names an empty place");
  }

  // Content counts as the scratchpad holds them now; records are looked up in the session's
  // family, every type but ip and ipv6 counting as mac.
  Counts<IpRuleConfig> ip;
  Counts<Ip6RuleConfig> ip6;
  Counts<MacRuleConfig> mac;
  const AclType type = session.aclType();
  const bool known = withFamily(type, [](auto) {});
  withFamily(familyOrMac(type), [&](auto family) {
    using F = decltype(family);
    auto& counts = std::get<Counts<typename F::Rule>&>(std::tie(ip, ip6, mac));
    countFamily(*sp, F::records(*sp), counts, out, known);
  });
  if (!session.spRuleMapInitialized()) return out;
  Counts<RemarkConfig> remarks;
  for (const auto& [sequence, remark] : sp->remarkBySequence()) ++remarks[remark];
  compareCounts("spIpRuleMap", session.spIpRuleMap(), ip, out);
  compareCounts("spIp6RuleMap", session.spIp6RuleMap(), ip6, out);
  compareCounts("spMacRuleMap", session.spMacRuleMap(), mac, out);
  compareCounts("spRemarkMap", session.spRemarkMap(), remarks, out);
  return out;
}

}  // namespace AclApi
