// What must always hold between an edit session and its scratchpad, checked from outside:
//   - once the content maps are built, each holds exactly the counts recomputed from the
//     scratchpad (an entry may stay behind at 0);
//   - spLastSequenceNumber is 0 (unknown) or the highest sequence of rules and remarks;
//   - every rule placed in ruleBySequence has its record in the family's collection.
// Used by tests and fuzzers after every step; not part of the library.
#pragma once

#include <string>
#include <vector>

#include "aclkit/Acl/AclApiSm.h"

namespace AclApi {

// One line per disagreement; empty when all holds.
std::vector<std::string> invariantViolations(const ApiSm& session);

}  // namespace AclApi
