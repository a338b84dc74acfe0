// What the units of the edit session share and its callers do not see: the trace facility,
// the scope every public operation runs in, and the session's per-family members.
#pragma once

#include "aclkit/Acl/AclApiSm.h"
#include "aclkit/model/Family.h"
#include "aclkit/platform/fwk/Transaction.h"
#include "aclkit/platform/trace/Trace.h"

namespace AclApi {

inline fwk::TraceFacility& traceApi() {
  static fwk::TraceFacility& facility = fwk::TraceFacility::get("AclApi");
  return facility;
}
#define ACL_API_TRACE(level, ...) FWK_TRACE(::AclApi::traceApi(), level, __VA_ARGS__)

// Every public operation of the session runs inside one. The session holds a counted
// reference to itself for the whole call, since an observer it notifies may let go of the
// caller's last one; and an exception (an observer's, an allocation's) leaves the store and
// the session as they were before the call.
class ApiSm::OperationScope {
 public:
  explicit OperationScope(ApiSm& session) : pin_(session.fwkReferences() > 0 ? &session : nullptr) {}

 private:
  Ptr<ApiSm> pin_;  // released after the transaction has undone what it must
  fwk::Transaction transaction_;
};

// The session's members of one family: its content counts and their update, and the name of
// its by-content removal (which traces under that name).
template <Acl::AclType Type>
struct SessionFamily;

#define ACLKIT_ACL_SESSION_FAMILY_(type, prefix, Prefix)                                         \
  template <>                                                                                    \
  struct SessionFamily<Acl::AclType::type> {                                                     \
    static const auto& counts(const ApiSm& session) { return session.sp##Prefix##RuleMap(); }    \
    static void count(ApiSm& session, const Acl::Prefix##RuleConfig& rule, std::int32_t delta) { \
      session.update##Prefix##RuleMap(rule, delta);                                              \
    }                                                                                            \
    static constexpr const char* removeByContentName = "remove" #Prefix "RuleByConfig";          \
  };
ACLKIT_ACL_RULE_FAMILIES(ACLKIT_ACL_SESSION_FAMILY_)
#undef ACLKIT_ACL_SESSION_FAMILY_

}  // namespace AclApi
