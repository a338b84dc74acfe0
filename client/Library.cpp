#include "aclkit/client/Library.h"

#include <algorithm>
#include <stdexcept>

#include "aclkit/model/Family.h"
#include "aclkit/platform/store/StateStore.h"
#include "aclkit/platform/trace/Clock.h"

namespace Client {

Library::Library(fwk::StateStore& store) : mounts_(Acl::mountAcl(store)) {}

Ptr<AclApi::ApiSm> Library::session(const String& name, AclType type, AclApi::ApiType api, bool standard) const {
  const Acl::AclMounts& m = mounts_;
  return AclApi::apiSmFactory(name, type, standard, api, m.config, m.paramConfig, m.intfConfig, m.hwConfig, m.status,
                              m.statusDpDir, m.udfAlias);
}

Ptr<AclApi::ApiSm> Library::session(const String& name, AclType type, AclApi::ApiType api, bool standard,
                                    const Acl::AclConfigSession& candidate) const {
  const Acl::AclMounts& m = mounts_;
  Ptr<AclApi::ApiSm> session =
      AclApi::apiSmFactory(name, type, standard, api, candidate.config(), m.paramConfig, candidate.intfConfig(),
                           m.hwConfig, m.status, m.statusDpDir, m.udfAlias);
  session->inConfigSessionIs(true);
  return session;
}

Ptr<Acl::AclConfig> Library::list(AclType type, const String& name) const {
  Ptr<Acl::Input::AclTypeConfig> table = mounts_.config->config(type);
  return table ? table->acl(name) : nullptr;
}

std::vector<Ptr<Acl::AclConfig>> Library::lists(AclType type) const {
  std::vector<Ptr<Acl::AclConfig>> all;
  if (Ptr<Acl::Input::AclTypeConfig> table = mounts_.config->config(type)) {
    for (const auto& [name, acl] : table->acl()) all.push_back(acl);
  }
  return all;
}

std::optional<std::string> Library::payloadRefusal(const Text::EntryBody& body, AclType type) const {
  const Acl::PayloadSpec* payload = nullptr;
  if (const auto* ip = std::get_if<Acl::IpRuleConfig>(&body)) payload = &ip->filter().payload();
  if (const auto* mac = std::get_if<Acl::MacRuleConfig>(&body)) payload = &mac->filter().payload();
  if (!payload || !payload->used()) return std::nullopt;
  const Acl::U16 capacity =
      type == AclType::ip ? mounts_.status->ipPayloadCapacity() : mounts_.status->macPayloadCapacity();
  const unsigned kept = capacity + 1U;
  if (payload->count() <= kept) return std::nullopt;
  return "a rule here may match at most " + std::to_string(kept) + " payload element" + (kept == 1 ? "" : "s") +
         " (this one has " + std::to_string(payload->count()) + "): an alias update would drop the rest";
}

std::vector<std::string> Library::dataplanesBehind() const {
  std::vector<std::string> behind;
  const double requested = mounts_.hwConfig->dpAclUpdateRequestTime();
  for (const auto& [name, entity] : mounts_.statusDpDir->entity()) {
    if (const auto dp = fwk::dynCast<const Acl::StatusDp>(Ptr<const fwk::Entity>(entity))) {
      if (dp->waitForHwStatus() && dp->dpAclUpdateTime() < requested) behind.emplace_back(name.view());
    }
  }
  return behind;
}

void Library::requestProgramming() const {
  mounts_.hwConfig->dpAclUpdateRequestTimeIs(fwk::now());
}

std::string_view keyword(AclType type) {
  switch (Acl::familyOrMac(type)) {
    case AclType::ip:
      return "ip";
    case AclType::ipv6:
      return "ipv6";
    default:
      return "mac";
  }
}

namespace {

// Calls visit(sequence, rule or remark) for every entry of a version in sequence order, rules
// before a remark at the same place: one merge walk over the two ordered maps, nothing copied.
template <class Visit>
void forEachEntry(const Acl::AclSubConfig& version, AclType type, Visit&& visit) {
  Acl::withFamily(type, [&](auto family) {
    using F = decltype(family);
    const auto& records = F::records(version);
    const auto& remarks = version.remarkBySequence();
    auto remark = remarks.begin();
    for (const auto& [sequence, id] : version.ruleBySequence()) {
      for (; remark != remarks.end() && remark->first < sequence; ++remark) visit(remark->first, remark->second);
      visit(sequence, records.valueOr(id));
    }
    for (; remark != remarks.end(); ++remark) visit(remark->first, remark->second);
  });
}

}  // namespace

std::vector<ListEntry> entriesOf(const Acl::AclSubConfig& version, AclType type) {
  std::vector<ListEntry> entries;
  entries.reserve(version.ruleBySequence().size() + version.remarkBySequence().size());
  forEachEntry(version, type, [&](U32 sequence, const auto& body) { entries.push_back({sequence, body}); });
  return entries;
}

bool sameEntries(const Acl::AclSubConfig& a, const Acl::AclSubConfig& b, AclType type) {
  const auto& remarks = a.remarkBySequence();
  const auto& otherRemarks = b.remarkBySequence();
  if (a.ruleBySequence().size() != b.ruleBySequence().size() || remarks.size() != otherRemarks.size() ||
      !std::equal(remarks.begin(), remarks.end(), otherRemarks.begin(),
                  [](const auto& x, const auto& y) { return x.first == y.first && x.second == y.second; })) {
    return false;
  }
  bool same = true;
  Acl::withFamily(type, [&](auto family) {
    using F = decltype(family);
    auto other = b.ruleBySequence().begin();
    for (const auto& [sequence, id] : a.ruleBySequence()) {
      same = sequence == other->first && F::records(a).valueOr(id) == F::records(b).valueOr(other->second);
      if (!same) return;
      ++other;
    }
  });
  return same;
}

std::string render(const ListEntry& entry, bool standard) {
  return Text::format(Text::Entry{entry.sequence, entry.body}, standard);
}

std::string render(const Acl::AclConfig& list, std::string_view indent) {
  std::string out(keyword(list.type()));
  out += " access-list ";
  if (list.standard()) out += "standard ";
  out += list.name().view();
  out += '\n';
  const Ptr<Acl::AclSubConfig>& current = list.currCfg();
  if (!current) return out;
  const std::string pad(indent);
  if (current->countersEnabled()) out += pad + "counters per-entry\n";
  if (current->fragmentsEnabled()) out += pad + "fragment-rules\n";
  for (const ListEntry& entry : entriesOf(*current, list.type())) {
    out += pad;
    out += render(entry, list.standard() && list.type() == AclType::ip);
    out += '\n';
  }
  return out;
}

}  // namespace Client
