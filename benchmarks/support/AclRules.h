// Rules for benchmarks: rule i is a distinct TCP rule (its own source host and port).
#pragma once

#include "aclkit/model/Rules.h"

namespace bench {

inline Acl::IpRuleConfig ruleNumber(Acl::U32 i) {
  using namespace Acl;
  IpRuleConfig rule;
  IpFilter f;
  f.protocolIs(6);
  f.protocolMaskIs(0xFF);
  f.srcIs(Ip4Addr(0x0A000000 + i));
  f.srcMaskIs(Ip4Addr(0xFFFFFFFF));
  f.dstPortIs(RangeMatch(ValueOp::eq, static_cast<U16>(i)));
  rule.filterIs(f);
  return rule;
}

}  // namespace bench
