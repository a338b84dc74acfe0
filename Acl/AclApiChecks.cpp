// Binding and unbinding, and the checks of a list against what the platform can program.
#include <functional>
#include <span>
#include <type_traits>

#include "aclkit/Acl/AclApiSm.h"
#include "aclkit/Acl/internal/Session.h"

namespace AclApi {

using namespace Acl;

// ---- attach and detach -----------------------------------------------------------------

Ptr<AclIntf> ApiSm::bindings(AclDirection direction, bool create) const {
  if (!intfConfig()) return nullptr;
  Ptr<IntfTypeConfig> table = intfConfig()->config(aclType());
  if (!table && create) table = intfConfig()->configIs(aclType());
  if (!table) return nullptr;
  Ptr<AclIntf> intfs = table->intf(direction);
  return intfs || !create ? intfs : table->intfIs(direction);
}

template <class Also>
bool ApiSm::boundWhere(Also also) const {
  if (!intfConfig()) return false;
  Ptr<const IntfTypeConfig> table = Ptr<const IntfConfig>(intfConfig())->config(aclType());
  if (!table) return false;
  for (const auto& [direction, intfs] : table->intf()) {
    for (const auto& [intfId, name] : intfs->intf()) {
      if (name == aclName() && also(intfId)) return true;
    }
  }
  return false;
}

ApiState ApiSm::attach(String intfName, AclDirection aclDirection) {
  const OperationScope scope(*this);
  if (!dpAclPreApplyOk()) return finish(errAclApi);
  FWK_ASSERT(apiType() == attach_);
  if (!intfConfig()) return notConfigured();
  intfIs(intfName);
  directionIs(aclDirection);
  if (!liveAcl(aclType())) ACL_API_TRACE(9, "Acl: " << aclName() << " does not exist");
  Ptr<AclIntf> intfs = bindings(aclDirection, true);
  const IntfId id(intfName);
  origAclNameIs(intfs->intf(id));
  intfs->intfIs(id, aclName());
  return finish(waitForHw());
}

ApiState ApiSm::detach(String intfName, AclDirection aclDirection) {
  const OperationScope scope(*this);
  FWK_ASSERT(apiType() == detach_);
  if (!intfConfig()) return notConfigured();
  intfIs(intfName);
  directionIs(aclDirection);
  const IntfId id(intfName);
  Ptr<AclIntf> intfs = bindings(aclDirection, false);
  const String bound = intfs ? intfs->intf(id) : String();
  if (bound.empty()) {
    ACL_API_TRACE(8, "No acl attached to " << intfName);
    return finish(succeeded);
  }
  if (aclName().empty() || aclName() == bound) {
    origAclNameIs(bound);
    intfs->intfDel(id);
    return finish(waitForHw());
  }
  ACL_API_TRACE(8, aclName() << " is not attached to " << intfName);
  return finish(succeeded);
}

ApiState ApiSm::notConfigured() {
  ACL_API_TRACE(9, "<, no interface configuration");
  return finish(errNotConfigured);
}

ApiState ApiSm::noAclConfig() {
  ACL_API_TRACE(0, "<, aclConfig is NULL");
  return finish(errNotConfigured);
}

String ApiSm::attachedAcl(String intfName, AclDirection aclDirection) const {
  Ptr<AclIntf> intfs = bindings(aclDirection, false);
  return intfs ? intfs->intf(IntfId(intfName)) : String();
}

bool ApiSm::attachedToDp() const {
  return boundWhere([](const IntfId&) { return true; });
}

bool ApiSm::attachingAclToVlan() const {
  ACL_API_TRACE(0, "attachingAclToVlan");
  return boundWhere([](const IntfId& intfId) { return VlanIntfId::isVlanIntfId(intfId); });
}

// ---- capability checks -----------------------------------------------------------------

namespace {
// Made at load rather than on first use, so that leak checks never count it as new.
const ParamConfig& noCapabilities = *new ParamConfig();
}  // namespace

const ParamConfig& ApiSm::capabilities() const {
  return paramConfig() ? *paramConfig() : noCapabilities;
}

namespace {

// Whether a rule uses a feature, from the record's own predicate: one of the rule (log,
// usesMirror) or one of its filter (usesDscp).
template <auto Predicate, class Rule>
bool uses(const Rule& rule) {
  if constexpr (std::is_invocable_v<decltype(Predicate), const Rule&>) {
    return std::invoke(Predicate, rule);
  } else {
    return std::invoke(Predicate, rule.filter());
  }
}

using Capability = const bool& (ParamConfig::*)() const noexcept;

// One row of the capability table: a rule that uses the feature is refused unless the
// platform has `capability` (null: no platform has it), and, for a row marked `onVlan`, only
// while the list is bound to a VLAN interface. The row's trace, errString key and message
// say which feature it was. Rows run in the order written, and each condition is tested
// only when the ones before it held.
template <class Rule>
struct CapabilityRow {
  bool (*used)(const Rule&);
  Capability capability;
  bool onVlan;
  const char* trace;
  const char* key;
  const char* message;
};

// Families differ in rows, order and wording.
const CapabilityRow<IpRuleConfig> ipRows[] = {
    {uses<&IpFilter::usesDiscontiguousMask>, &ParamConfig::discontiguousMaskSupported, false,
     "<, discontiguous IP mask not supported", "discontiguous IP mask", "discontiguous IP mask not supported"},
    {uses<&RuleConfig::usesMirror>, &ParamConfig::ipMirrorSupported, false,
     "<, mirroring action on IP ACL not supported", "mirror", "mirror not supported"},
    {uses<&RuleConfig::copyToCpu>, &ParamConfig::copyToCpuSupported, false,
     "<, copyToCpu action on IP ACL not supported", "copyToCpu", "copyToCpu not supported"},
    {uses<&RuleConfig::log>, &ParamConfig::loggingSupported, false, "<, logging not supported", "logging",
     "logging not supported"},
    {uses<&IpFilter::tracked>, nullptr, false, "<, tracked", "tracked", "tracked not supported"},
    {uses<&IpFilter::usesTtlOption>, nullptr, false, "<, ttl option not supported", "ttl", "ttl option not supported"},
    {uses<&IpFilter::usesDscp>, &ParamConfig::ipDscpSupported, false, "<, dscp not supported", "dscp",
     "dscp not supported"},
    {uses<&IpFilter::usesDscpMask>, &ParamConfig::ipDscpMaskSupported, false, "<, dscpMask not supported", "dscpMask",
     "dscpMask not supported"},
    {uses<&IpFilter::usesEcn>, &ParamConfig::ecnSupported, false, "<, ecn not supported", "ecn", "ecn not supported"},
    {uses<&IpFilter::usesIpLength>, &ParamConfig::ipLengthSupported, false, "<, ip-length match not supported",
     "ip-length", "ip-length not supported"},
    {uses<&IpFilter::usesOuterVlan>, &ParamConfig::outerVlanSupported, false, "<, outer Vlan not supported",
     "outer-vlan", "outer vlan not supported"},
    {uses<&IpFilter::usesInnerVlan>, &ParamConfig::innerVlanSupported, false, "<, inner Vlan not supported",
     "inner-vlan", "inner vlan not supported"},
    {uses<&IpFilter::usesNvgre>, &ParamConfig::dpiNvgreSupported, false, "<, DPI Nvgre not supported", "dpi-nvgre",
     "DPI Nvgre not supported"},
    {uses<&IpFilter::usesGre>, &ParamConfig::dpiGreSupported, false, "<, DPI Gre not supported", "dpi-gre",
     "DPI Gre not supported"},
    {uses<&IpFilter::usesTni>, &ParamConfig::dpiNvgreSupported, false, "<, DPI TNI not supported", "dpi-tni",
     "DPI TNI not supported"},
    {uses<&IpFilter::usesVxlan>, &ParamConfig::dpiVxlanSupported, false, "<, DPI Vxlan not supported", "dpi-vxlan",
     "DPI Vxlan not supported"},
    {uses<&IpFilter::usesVni>, &ParamConfig::dpiVxlanSupported, false, "<, DPI VNI not supported", "dpi-vni",
     "DPI VNI not supported"},
    {uses<&IpFilter::usesGtp>, &ParamConfig::dpiGtpSupported, false, "<, DPI Gtp not supported", "dpi-gtp",
     "DPI Gtp not supported"},
    {uses<&IpFilter::usesTeid>, &ParamConfig::dpiGtpSupported, false, "<, DPI TEID not supported", "dpi-teid",
     "DPI TEID not supported"},
    {uses<&IpFilter::usesUserL4>, &ParamConfig::dpiUserL4Supported, false, "<, DPI userL4 not supported", "dpi-userl4",
     "DPI userL4 not supported"},
    {uses<&IpFilter::usesPayload>, &ParamConfig::dpiPayloadSupported, false, "<, DPI Payload not supported",
     "dpi-payload", "DPI payload not supported"},
    {uses<&IpFilter::usesVlan>, nullptr, true, "<, trying to attach to Vlan", "vlan-vacl", "Vlan VACL not supported"},
    {uses<&IpRuleConfig::vacl>, &ParamConfig::vaclSupported, true, "<, trying to attach to Vlan", "vacl",
     "VACL not supported"},
    {uses<&IpFilter::usesTcpFlags>, &ParamConfig::tcpFlagsSupported, false, "<, TCP flags not supported", "tcpFlag",
     "TCP flag not supported"},
};

const CapabilityRow<Ip6RuleConfig> ip6Rows[] = {
    {uses<&RuleConfig::usesMirror>, &ParamConfig::ip6MirrorSupported, false,
     "<, mirroring action on IPv6 ACL not supported", "mirror", "mirror not supported"},
    {uses<&RuleConfig::copyToCpu>, &ParamConfig::copyToCpuSupported, false,
     "<, copyToCpu action on IPv6 ACL not supported", "copyToCpu", "copyToCpu not supported"},
    {uses<&RuleConfig::log>, &ParamConfig::loggingSupported, false, "<, ipv6 logging not supported", "ipv6-logging",
     "ipv6 logging not supported"},
    {uses<&Ip6Filter::usesEcn>, &ParamConfig::ecnSupported, false, "<, ecn not supported", "ecn", "ecn not supported"},
    {uses<&Ip6Filter::usesHopLimitOption>, nullptr, false, "<, hop-limit option not supported", "hop-limit",
     "hop-limit option not supported"},
    {uses<&Ip6Filter::usesOuterVlan>, &ParamConfig::outerVlanSupported, false, "<, outer Vlan not supported",
     "outer-vlan", "outer vlan not supported"},
    {uses<&Ip6Filter::usesInnerVlan>, &ParamConfig::innerVlanSupported, false, "<, inner Vlan not supported",
     "inner-vlan", "inner vlan not supported"},
    {uses<&Ip6Filter::usesIpLength>, &ParamConfig::ipLengthSupported, false, "<, ip-length match not supported",
     "ip-length", "ip-length not supported"},
    {uses<&Ip6Filter::usesNvgre>, &ParamConfig::dpiNvgreSupported, false, "<, DPI Nvgre not supported", "dpi-nvgre",
     "DPI Nvgre not supported"},
    {uses<&Ip6Filter::usesTni>, &ParamConfig::dpiNvgreSupported, false, "<, DPI TNI not supported", "dpi-tni",
     "DPI TNI not supported"},
    {uses<&Ip6Filter::usesVxlan>, &ParamConfig::dpiVxlanSupported, false, "<, DPI Vxlan not supported", "dpi-vxlan",
     "DPI Vxlan not supported"},
    {uses<&Ip6Filter::usesVni>, &ParamConfig::dpiVxlanSupported, false, "<, DPI VNI not supported", "dpi-vni",
     "DPI VNI not supported"},
    {uses<&Ip6Filter::usesGtp>, &ParamConfig::dpiGtpSupported, false, "<, DPI Gtp not supported", "dpi-gtp",
     "DPI Gtp not supported"},
    {uses<&Ip6Filter::usesTeid>, &ParamConfig::dpiGtpSupported, false, "<, DPI TEID not supported", "dpi-teid",
     "DPI TEID not supported"},
    {uses<&Ip6Filter::usesUserL4>, &ParamConfig::dpiUserL4Supported, false, "<, DPI UserL4 not supported", "dpi-userl4",
     "DPI UserL4 not supported"},
    {uses<&Ip6Filter::usesPayload>, &ParamConfig::dpiPayloadSupported, false, "<, DPI Payload not supported",
     "dpi-payload", "DPI payload not supported"},
    {uses<&Ip6Filter::usesTcpFlags>, &ParamConfig::tcpFlagsSupported, false, "<, TCP flag not supported", "tcpFlag",
     "TCP flag not supported"},
    {uses<&Ip6Filter::usesDscp>, &ParamConfig::ip6DscpSupported, false, "<, dscp not supported", "dscp",
     "dscp not supported"},
    {uses<&Ip6Filter::usesDscpMask>, &ParamConfig::ip6DscpMaskSupported, false, "<, dscpMask not supported", "dscpMask",
     "dscpMask not supported"},
};

const CapabilityRow<MacRuleConfig> macRows[] = {
    {uses<&RuleConfig::usesMirror>, &ParamConfig::macMirrorSupported, false,
     "<, mirroring action on MAC ACL not supported", "mirror", "mirror not supported"},
    {uses<&RuleConfig::log>, &ParamConfig::loggingSupported, false, "<, mac logging not supported", "mac-logging",
     "mac logging not supported"},
    {uses<&MacFilter::usesOuterVlan>, &ParamConfig::outerVlanSupported, false, "<, outer Vlan not supported",
     "outer-vlan", "outer Vlan not supported"},
    {uses<&MacFilter::usesInnerVlan>, &ParamConfig::innerVlanSupported, false, "<, inner Vlan not supported",
     "inner-vlan", "inner Vlan not supported"},
    {uses<&MacFilter::usesTwoMplsLabels>, &ParamConfig::mplsTwoLabelSupported, false, "<, Two-label Mpls not supported",
     "mpls", "Two-label Mpls not supported"},
    {uses<&MacFilter::usesMpls>, &ParamConfig::mplsSupported, false, "<, Mpls not supported", "mpls",
     "Mpls not supported"},
    {uses<&MacFilter::usesPayload>, &ParamConfig::dpiPayloadSupported, false, "<, DPI Payload not supported",
     "dpi-payload", "DPI payload not supported"},
};

const std::span<const CapabilityRow<IpRuleConfig>> rowsOf(const Family<AclType::ip>&) {
  return ipRows;
}
const std::span<const CapabilityRow<Ip6RuleConfig>> rowsOf(const Family<AclType::ipv6>&) {
  return ip6Rows;
}
const std::span<const CapabilityRow<MacRuleConfig>> rowsOf(const Family<AclType::mac>&) {
  return macRows;
}

// Deep inspection of IPv4 rules: what a non-zero skip (or a VLAN interface) rules out, in
// the order tested; the first match decides.
struct InspectionRow {
  bool (*used)(const IpRuleConfig&);
  bool withSkip;  // refused only while the platform's skip is non-zero
  bool onVlan;    // refused only while the list is bound to a VLAN interface
  const char* trace;
};
const InspectionRow inspectionRows[] = {
    {uses<&IpFilter::usesNvgre>, true, false, "<, DPI Nvgre not supported with non-zero skip"},
    {uses<&IpFilter::usesGre>, true, false, "<, DPI Gre not supported with non-zero skip"},
    {uses<&IpFilter::usesTni>, true, false, "<, DPI TNI not supported with non-zero skip"},
    {uses<&IpFilter::usesVxlan>, true, false, "<, DPI Vxlan not supported with non-zero skip"},
    {uses<&IpFilter::usesVni>, true, false, "<, DPI VNI not supported with non-zero skip"},
    {uses<&IpFilter::usesGtp>, true, false, "<, DPI Gtp not supported with non-zero skip"},
    {uses<&IpFilter::usesTeid>, true, false, "<, DPI TEID not supported with non-zero skip"},
    {uses<&IpFilter::usesMaskedVlan>, false, true, "<, trying to attach to Vlan"},
};

}  // namespace

bool ApiSm::dpAclOk() {
  const OperationScope scope(*this);
  ACL_API_TRACE(0, "dpAclOk");
  if (!attachedToDp()) {
    ACL_API_TRACE(9, "Acl " << aclName() << " is not attached to any interface");
    return true;
  }
  const ParamConfig& can = capabilities();
  if (aclType() == AclType::ipv6) {
    if (!can.ip6AclSupported()) {
      errStringIs("ip6", "ip6 Acl not supported");
      ACL_API_TRACE(9, "ip6 Acl not supported");
      return false;
    }
  } else if (!can.aclSupported()) {
    errStringIs("dpacl", "Acl not supported by hardware");
    ACL_API_TRACE(9, "Acl not supported by hw");
    return false;
  }
  bool ok = true;
  Ptr<AclConfig> acl = liveAcl(aclType());
  if (Ptr<AclSubConfig> current = acl ? acl->currCfg() : nullptr) {
    // Every rule of every family against every row: one call reports every feature the
    // platform lacks.
    forEachFamily([&](auto family) {
      for (const auto& [id, rule] : decltype(family)::records(*current)) {
        for (const auto& row : rowsOf(family)) {
          if (!row.used(rule) || (row.capability && (can.*row.capability)())) continue;
          if (row.onVlan && !attachingAclToVlan()) continue;
          FWK_TRACE_AS(traceApi(), 0, "dpAclOk", row.trace);
          errStringIs(row.key, row.message);
          ok = false;
        }
      }
    });
  }
  ACL_API_TRACE(0, "<, " << ok);
  return ok;
}

bool ApiSm::dpAclDpiOk() const {
  ACL_API_TRACE(0, "dpAclDpiOk");
  Ptr<AclConfig> acl = liveAcl(aclType());
  Ptr<const AclSubConfig> current = acl ? acl->currCfg() : nullptr;
  if (!current) return true;
  const bool skip = capabilities().dpiSkipNonZero();
  for (const auto& [id, rule] : current->ipRuleById()) {
    for (const InspectionRow& row : inspectionRows) {
      if ((row.withSkip && !skip) || !row.used(rule) || (row.onVlan && !attachingAclToVlan())) continue;
      ACL_API_TRACE(0, row.trace);
      return false;
    }
  }
  if (capabilities().mplsSkipNonZero()) {
    for (const auto& [id, rule] : current->macRuleById()) {
      if (rule.filter().usesMpls()) {
        ACL_API_TRACE(0, "<, Mpls not supported with non-zero skip");
        return false;
      }
    }
  }
  ACL_API_TRACE(0, "<, true");
  return true;
}

bool ApiSm::dpAclPreApplyOk() {
  const OperationScope scope(*this);
  ACL_API_TRACE(5, "dpAclPreApplyOk");
  Ptr<AclSubConfig> checked;
  if (apiType() == commit_) {
    checked = spAclSubConfig();
  } else if (Ptr<AclConfig> acl = liveAcl(aclType())) {
    checked = acl->currCfg();
  }
  if (!checked || !guardsEnabled() || capabilities().ip6HopLimitSupported()) return true;
  for (const auto& [id, rule] : checked->ip6RuleById()) {
    if (rule.filter().usesHopLimit()) {
      ACL_API_TRACE(0, "<, ipv6 hop limit not supported");
      errStringIs("IPv6", "hop limit is not supported for IPv6 ACLs on this platform");
      return false;
    }
  }
  return true;
}

}  // namespace AclApi
