#include "aclkit/Acl/AclCopy.h"

#include <optional>
#include <set>
#include <vector>

#include "aclkit/model/Family.h"
#include "aclkit/platform/fwk/Define.h"
#include "aclkit/platform/trace/Trace.h"

namespace Acl {

FWK_ENTITY_DEFINE_WITH_OPS(AclConfigCopyHandler, ACLKIT_ACL_CONFIG_COPY_HANDLER_ATTRS,
                           ACLKIT_ACL_CONFIG_COPY_HANDLER_OPS)
FWK_ENTITY_DEFINE(AclIntfConfigCopyHandler, ACLKIT_ACL_INTF_CONFIG_COPY_HANDLER_ATTRS)
FWK_ENTITY_DEFINE(AclConfigCopyHandlerDir, ACLKIT_ACL_CONFIG_COPY_HANDLER_DIR_ATTRS)
FWK_ENTITY_DEFINE(AclIntfConfigCopyHandlerDir, ACLKIT_ACL_INTF_CONFIG_COPY_HANDLER_DIR_ATTRS)
FWK_REGISTER_FACTORY(AclConfigCopyHandler, aclConfigCopyHandlerFactory)
FWK_REGISTER_FACTORY(AclIntfConfigCopyHandler, aclIntfConfigCopyHandlerFactory)
FWK_REGISTER_FACTORY(AclConfigCopyHandlerDir, aclConfigCopyHandlerDirFactory)
FWK_REGISTER_FACTORY(AclIntfConfigCopyHandlerDir, aclIntfConfigCopyHandlerDirFactory)

namespace {

fwk::TraceFacility& traceCopy() {
  static fwk::TraceFacility& facility = fwk::TraceFacility::get("AclCopy");
  return facility;
}
#define ACL_COPY_TRACE(level, ...) FWK_TRACE(traceCopy(), level, __VA_ARGS__)

// The rules under two identities, each read from its own version; an identity without a
// rule reads as the default rule. Compared in place: no copy, no allocation.
template <class Map>
bool sameRuleContent(const Map& mapA, const UniqueId& idA, const Map& mapB, const UniqueId& idB) {
  return mapA.valueOr(idA) == mapB.valueOr(idB);
}

// Two ordered maps are the same when they hold as many entries and `same` accepts every
// pair taken in order. A count mismatch is traced, in the name of the calling operation.
template <class Map, class Same>
bool sameInOrder(const char* operation, const char* countMismatch, const Map& a, const Map& b, Same same) {
  if (a.size() != b.size()) {
    FWK_TRACE_AS(traceCopy(), 9, operation, countMismatch << a.size() << ":" << b.size());
    return false;
  }
  auto itB = b.begin();
  for (auto itA = a.begin(); itA != a.end(); ++itA, ++itB) {
    if (!same(*itA, *itB)) return false;
  }
  return true;
}

// Versions compared are mostly one edited from the other: their places differ at a few keys
// and share the rest. A differing key whose position holds different rules in the two versions
// proves them unequal without reading the rest; when the two hold the same keys and share every
// record, those positions are all that can differ. Anything else (nothing found, or positions
// shifted by a key only one of them holds) is left to the in-order walk, which gives the same
// answer by reading every rule.
template <class Places, class Records>
std::optional<bool> equalByDifferences(const Places& placesA, const Records& recordsA, const Places& placesB,
                                       const Records& recordsB) {
  struct Differing {
    U32 key;
    bool inA;
    bool inB;
  };
  std::vector<Differing> differing;
  placesA.forEachDifference(placesB, [&](const U32& key, const UniqueId* mine, const UniqueId* theirs) {
    differing.push_back({key, mine != nullptr, theirs != nullptr});
  });
  // Versions built apart differ at nearly every identity: reading them in order is cheaper
  // than finding each position.
  if (differing.size() > 64 + placesA.size() / 16) return std::nullopt;
  auto differsAt = [&](std::size_t index) {
    return !sameRuleContent(recordsA, (*placesA.nth(index)).second, recordsB, (*placesB.nth(index)).second);
  };
  bool sameKeys = true;
  for (const Differing& place : differing) {
    sameKeys = sameKeys && place.inA && place.inB;
    // Both hold as many entries, so a key one of them holds has a position in the other too.
    // A key both hold sits at one position in each unless an earlier key shifted them.
    const std::optional<std::size_t> inA = place.inA ? std::optional(placesA.indexOf(place.key)) : std::nullopt;
    const std::optional<std::size_t> inB = place.inB ? std::optional(placesB.indexOf(place.key)) : std::nullopt;
    if (inA && differsAt(*inA)) return false;
    if (inB && inB != inA && differsAt(*inB)) return false;
  }
  if (sameKeys && recordsA.sharesAllWith(recordsB)) return true;
  return std::nullopt;
}

}  // namespace

// ---- AclConfigCopyHandler ------------------------------------------------------------

void AclConfigCopyHandler::initialize() {
  Ptr<AttributeFilter> filter = filteredAttributeIs();
  // Named through the reflected attributes, so that a renamed attribute cannot slip through.
  const auto& attrs = AclConfig::staticType().ownAttrs();
  for (std::uint16_t index : {AclConfig::subConfigAttrIndex, AclConfig::currCfgAttrIndex,
                              AclConfig::counterUpdateRequestTimeAttrIndex, AclConfig::secureMonitorAttrIndex}) {
    filter->attributeNameIs(attrs[index]->name(), true);
  }
}

Ptr<AttributeFilter> AclConfigCopyHandler::filteredAttributeIs() {
  if (filteredAttribute()) return filteredAttribute();
  Ptr<AttributeFilter> filter(new AttributeFilter());
  filter->hasNotificationActiveIs(true);
  filteredAttributeAdopt(filter);
  return filter;
}

void AclConfigCopyHandler::filteredAttributeDel() {
  filteredAttributeAdopt(nullptr);
}

bool AclConfigCopyHandler::equalRuleConfig(AclType aclType, const Ptr<const AclSubConfig>& a,
                                           const Ptr<const AclSubConfig>& b) const {
  if (a->opaque()) return b->opaque();
  if (b->opaque()) return false;
  if (a->countersEnabled() != b->countersEnabled() || a->fragmentsEnabled() != b->fragmentsEnabled()) return false;
  auto rulesInOrder = [&](auto same) {
    return sameInOrder("equalRuleConfig", "rule count mismatch - ", a->ruleBySequence(), b->ruleBySequence(), same);
  };
  bool equal = false;
  const bool known = withFamily(aclType, [&](auto family) {
    using F = decltype(family);
    // Versions that share their places and their records (a copy not edited since) are
    // equal unread; their counts agree, so no mismatch goes untraced.
    if (a->ruleBySequence().sharesAllWith(b->ruleBySequence()) && F::records(*a).sharesAllWith(F::records(*b))) {
      equal = true;
      return;
    }
    if (a->ruleBySequence().size() == b->ruleBySequence().size()) {
      if (const std::optional<bool> decided =
              equalByDifferences(a->ruleBySequence(), F::records(*a), b->ruleBySequence(), F::records(*b))) {
        equal = *decided;
        return;
      }
    }
    equal = rulesInOrder([&](const auto& x, const auto& y) {
      return sameRuleContent(F::records(*a), x.second, F::records(*b), y.second);
    });
  });
  // A type that names no family has no rule contents to compare; the counts still must agree.
  return known ? equal : rulesInOrder([](const auto&, const auto&) { return true; });
}

bool AclConfigCopyHandler::equalSequence(const Ptr<const AclSubConfig>& a, const Ptr<const AclSubConfig>& b) const {
  FWK_ASSERT_TEXT(a, "a");
  FWK_ASSERT_TEXT(b, "b");
  // One storage holds the same entries (and so as many): nothing to read, nothing to trace.
  if (a->ruleBySequence().sharesAllWith(b->ruleBySequence())) return true;
  return sameInOrder("equalSequence", "sequence count mismatch - ", a->ruleBySequence(), b->ruleBySequence(),
                     [](const auto& x, const auto& y) { return x.first == y.first; });
}

bool AclConfigCopyHandler::equalRemark(const Ptr<const AclSubConfig>& a, const Ptr<const AclSubConfig>& b) const {
  FWK_ASSERT_TEXT(a, "a");
  FWK_ASSERT_TEXT(b, "b");
  // "remarek" is spelled so on purpose: log scrapers match this text.
  if (a->remarkBySequence().sharesAllWith(b->remarkBySequence())) return true;
  return sameInOrder("equalRemark", "remarek count mismatch - ", a->remarkBySequence(), b->remarkBySequence(),
                     [](const auto& x, const auto& y) { return x.first == y.first && x.second == y.second; });
}

bool AclConfigCopyHandler::copyNonEssential(const Ptr<AclSubConfig>& dest, const Ptr<const AclSubConfig>& src) const {
  if (dest->opaque() && src->opaque()) return false;
  bool sameSequence = equalSequence(dest, src);
  if (!sameSequence) copySequence(dest, src);
  if (equalRemark(dest, src)) return !sameSequence;
  copyRemark(dest, src);
  return true;
}

void AclConfigCopyHandler::copySequence(const Ptr<AclSubConfig>& dest, const Ptr<const AclSubConfig>& src) const {
  std::vector<UniqueId> ids;
  ids.reserve(dest->ruleBySequence().size());
  for (const auto& entry : dest->ruleBySequence()) ids.push_back(entry.second);
  ACL_COPY_TRACE(2, "copy sequence");
  dest->ruleBySequenceDelAll();
  auto id = ids.begin();
  for (auto it = src->ruleBySequence().begin(); it != src->ruleBySequence().end() && id != ids.end(); ++it, ++id) {
    dest->ruleBySequenceIs(it->first, *id);
  }
}

void AclConfigCopyHandler::copyRemark(const Ptr<AclSubConfig>& dest, const Ptr<const AclSubConfig>& src) const {
  ACL_COPY_TRACE(2, "copy remark");
  dest->remarkBySequenceDelAll();
  for (const auto& [sequence, remark] : src->remarkBySequence()) dest->remarkBySequenceIs(sequence, remark);
}

bool AclConfigCopyHandler::handleEntity(const Ptr<EntityCopy>& entityCopy, const Ptr<fwk::Entity>& dest,
                                        const Ptr<const fwk::Entity>& src, const String& name) {
  Ptr<Input::AclTypeConfig> destConfig = fwk::dynCast<Input::AclTypeConfig>(dest);
  Ptr<const Input::AclTypeConfig> srcConfig = fwk::dynCast<const Input::AclTypeConfig>(src);
  FWK_ASSERT(destConfig);
  FWK_ASSERT(srcConfig);
  FWK_ASSERT(destConfig->type() == srcConfig->type());
  const AclType type = destConfig->type();
  ACL_COPY_TRACE(8, "handleEntity"
                        << " for type " << type);
  bool changed = false;

  for (auto it = destConfig->acl().begin(); it != destConfig->acl().end(); ++it) {
    const String aclName = it->first;
    if (srcConfig->acl().contains(aclName)) continue;
    const Ptr<AclConfig>& acl = it->second;
    if (acl->dynamic() || acl->secureMonitor()) {
      ACL_COPY_TRACE(7, aclName << " is dynamic, skipping");
      continue;
    }
    ACL_COPY_TRACE(7, "Deleting " << aclName);
    destConfig->aclDel(aclName);
    changed = true;
  }

  for (const auto& [aclName, srcAcl] : srcConfig->acl()) {
    ACL_COPY_TRACE(7, "Now copying " << aclName);
    Ptr<AclConfig> destAcl = destConfig->acl(aclName);
    if (!destAcl) {
      ACL_COPY_TRACE(7, "No dest acl exists for src " << aclName << ", creating one.");
      destAcl = destConfig->aclIs(aclName, type, srcAcl->standard(), srcAcl->readonly());
      changed = true;
    } else if (destAcl->readonly() != srcAcl->readonly() || destAcl->standard() != srcAcl->standard()) {
      if (destAcl->secureMonitor() != srcAcl->secureMonitor()) {
        ACL_COPY_TRACE(7, "secure-monitor dest acl " << aclName << " skipped");
        continue;
      }
      ACL_COPY_TRACE(7, "src acl " << aclName << " has different ctor args -- deleting dest");
      destConfig->aclDel(aclName);
      destAcl = destConfig->aclIs(aclName, type, srcAcl->standard(), srcAcl->readonly());
      changed = true;
    }
    String path = name + ".acl/" + aclName.view();
    changed = handleAclConfig(entityCopy, destAcl, srcAcl, path) || changed;
  }
  return changed;
}

bool AclConfigCopyHandler::handleAclConfig(const Ptr<EntityCopy>& entityCopy, const Ptr<AclConfig>& destConfig,
                                           const Ptr<const AclConfig>& srcConfig, const String& path) {
  ACL_COPY_TRACE(
      8, "AclConfigCopyHandler::handleEntity: src " << srcConfig->fullName() << ", dest " << destConfig->fullName());
  bool monitorChanged = false;
  if (destConfig->secureMonitor() != srcConfig->secureMonitor()) {
    destConfig->secureMonitorIs(srcConfig->secureMonitor());
    monitorChanged = true;
  }
  // A handler made without its factory has not been initialized; copying the versions
  // generically would be wrong, so make sure the filter is there.
  if (!filteredAttribute()) initialize();
  bool attrsChanged = entityCopy->doCopyEntityAttrs(destConfig, srcConfig, path, filteredAttribute());
  FWK_ASSERT(destConfig->type() == srcConfig->type());
  FWK_ASSERT(srcConfig->currCfg());

  const Ptr<AclSubConfig>& srcCurrent = srcConfig->currCfg();
  bool result = true;
  if (Ptr<AclSubConfig> current = destConfig->currCfg();
      current && equalRuleConfig(destConfig->type(), current, srcCurrent)) {
    bool patched = copyNonEssential(current, srcCurrent);
    result = patched || monitorChanged || attrsChanged;
  } else {
    // Build the new version completely, mark it committed, and only then make it current;
    // the old one goes last. An observer of currCfg never sees a partial list.
    Ptr<AclSubConfig> old = current;  // NOLINT(performance-unnecessary-copy-initialization): current moves on
    const UniqueId id = srcCurrent->id();
    Ptr<AclSubConfig> fresh = destConfig->subConfigIs(id);
    fresh->committedIs(true);
    ACL_COPY_TRACE(0, "Copying destination subConfig " << id);
    entityCopy->doCopyEntityAttrs(fresh, srcCurrent, "", nullptr);
    destConfig->currCfgIs(fresh);
    if (old && old != fresh) {
      ACL_COPY_TRACE(0, "Deleting destination subConfig " << old->id());
      destConfig->subConfigDel(old->id());
    }
  }
  ACL_COPY_TRACE(1, "Destination config is " << destConfig->currCfg()->fullName());
  return result;
}

Ptr<AclConfigCopyHandler> aclConfigCopyHandlerFactory() {
  Ptr<AclConfigCopyHandler> handler(new AclConfigCopyHandler());
  handler->hasNotificationActiveIs(true);
  return handler;
}

// ---- AclIntfConfigCopyHandler --------------------------------------------------------

bool AclIntfConfigCopyHandler::handleEntity(const Ptr<EntityCopy>&, const Ptr<fwk::Entity>& dest,
                                            const Ptr<const fwk::Entity>& src, const String&) {
  Ptr<IntfTypeConfig> destConfig = fwk::dynCast<IntfTypeConfig>(dest);
  Ptr<const IntfTypeConfig> srcConfig = fwk::dynCast<const IntfTypeConfig>(src);
  FWK_ASSERT(destConfig);
  FWK_ASSERT(srcConfig);
  FWK_ASSERT(destConfig->type() == srcConfig->type());
  const AclType type = destConfig->type();
  ACL_COPY_TRACE(8, "handleEntity"
                        << " for type " << type);
  Ptr<const Input::AclTypeConfig> acls = config() ? Ptr<const Input::Config>(config())->config(type) : nullptr;

  std::set<AclDirection> directions;
  for (const auto& entry : destConfig->intf()) directions.insert(entry.first);
  for (const auto& entry : srcConfig->intf()) directions.insert(entry.first);

  bool changed = false;
  for (AclDirection direction : directions) {
    Ptr<AclIntf> destIntf = destConfig->intf(direction);
    Ptr<const AclIntf> srcIntf = srcConfig->intf(direction);
    if (destIntf) {
      std::set<IntfId> stale;  // ordered, so the traces come out the same every time
      for (const auto& [intf, aclName] : destIntf->intf()) {
        if (!srcIntf || !srcIntf->intf().contains(intf)) stale.insert(intf);
      }
      for (const IntfId& intf : stale) {
        String aclName = destIntf->intf(intf);
        Ptr<const AclConfig> acl = acls ? acls->acl(aclName) : nullptr;
        if (acl && (acl->dynamic() || acl->secureMonitor())) {
          ACL_COPY_TRACE(7, intf << " attached acl " << aclName << " is dynamic, skipping");
          continue;
        }
        destIntf->intfDel(intf);
        changed = true;
      }
    }
    if (!srcIntf) continue;
    for (const auto& [intf, aclName] : srcIntf->intf()) {
      if (destIntf) {
        const String* bound = destIntf->intf().find(intf);
        if (bound && *bound == aclName) continue;
      } else {
        destIntf = destConfig->intfIs(direction);
      }
      destIntf->intfIs(intf, aclName);
      changed = true;
    }
  }
  return changed;
}

Ptr<AclIntfConfigCopyHandler> aclIntfConfigCopyHandlerFactory(Ptr<Input::Config> config) {
  Ptr<AclIntfConfigCopyHandler> handler(new AclIntfConfigCopyHandler(config));
  handler->hasNotificationActiveIs(true);
  return handler;
}

// ---- handler directories -------------------------------------------------------------

Ptr<AclConfigCopyHandler> AclConfigCopyHandlerDir::copyHandlerIs() {
  if (copyHandler()) return copyHandler();
  Ptr<AclConfigCopyHandler> handler(new AclConfigCopyHandler());
  handler->hasNotificationActiveIs(true);
  copyHandlerAdopt(handler);
  return handler;
}

void AclConfigCopyHandlerDir::copyHandlerDel() {
  copyHandlerAdopt(nullptr);
}

Ptr<AclIntfConfigCopyHandler> AclIntfConfigCopyHandlerDir::copyHandlerIs(const Ptr<Input::Config>& config) {
  if (copyHandler() && copyHandler()->config() == config) return copyHandler();
  Ptr<AclIntfConfigCopyHandler> handler(new AclIntfConfigCopyHandler(config));
  handler->hasNotificationActiveIs(true);
  copyHandlerAdopt(handler);
  return handler;
}

void AclIntfConfigCopyHandlerDir::copyHandlerDel() {
  copyHandlerAdopt(nullptr);
}

Ptr<AclConfigCopyHandlerDir> aclConfigCopyHandlerDirFactory(String name) {
  Ptr<AclConfigCopyHandlerDir> dir(new AclConfigCopyHandlerDir(name));
  dir->hasNotificationActiveIs(true);
  return dir;
}

Ptr<AclIntfConfigCopyHandlerDir> aclIntfConfigCopyHandlerDirFactory(String name) {
  Ptr<AclIntfConfigCopyHandlerDir> dir(new AclIntfConfigCopyHandlerDir(name));
  dir->hasNotificationActiveIs(true);
  return dir;
}

}  // namespace Acl
