// What must always hold between an edit session and what it watches, checked from outside and
// invisible in the store's attributes: each dataplane's reactor watches the record the session
// holds for it, the scratchpad's reactor watches the scratchpad, and the cached last sequence is
// 0 (unknown) or a place in use. Used by the property and fault tests after every step.
#pragma once

#include <string>
#include <vector>

#include "aclkit/Acl/AclApiSm.h"

namespace AclApi {

// One line per disagreement; empty when all holds.
std::vector<std::string> invariantViolations(const ApiSm& session);

}  // namespace AclApi
