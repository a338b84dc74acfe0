#include "tests/support/SessionInvariants.h"

namespace AclApi {

std::vector<std::string> invariantViolations(const ApiSm& session) {
  std::vector<std::string> out;
  // A reactor left on a record or a version the session let go of would act on a dead entity.
  for (const auto& [name, entry] : session.statusDpEntry()) {
    const Ptr<const Acl::StatusDp>* record = session.statusDp().find(name);
    if (!record || entry->statusDp() != *record || entry->notifier() != record->get()) {
      out.push_back("the status reactor of " + std::string(name.view()) + " watches another record");
    }
  }
  const Ptr<Acl::AclSubConfig>& sp = session.spAclSubConfig();
  if (session.scratchpadReactor_.notifier() != sp.get()) out.push_back("the scratchpad reactor watches another entity");
  // The cache only ever takes a place just written or found, and drops to 0 when that place
  // empties; it may lie below higher entries.
  const Acl::U32 cached = session.spLastSequenceNumber();
  if (sp && cached != 0 && !sp->ruleBySequence().contains(cached) && !sp->remarkBySequence().contains(cached)) {
    out.push_back("spLastSequenceNumber " + std::to_string(cached) + " names an empty place");
  }
  return out;
}

}  // namespace AclApi
