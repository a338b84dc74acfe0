// Entries as nf_tables rules. Every rule made here is new and owned by the caller (a Batch takes
// it).
#pragma once

#include <string>
#include <vector>

#include "aclkit/agent/Dataplane.h"

struct nftnl_rule;

namespace Kernel::nft {

// The entry's matches, a counter and its verdict; a permit also sets the permit mark. Null, with
// `why` set, when nf_tables cannot hold one of its matches.
[[nodiscard]] nftnl_rule* entryRule(const Agent::Rule& rule, std::string& why);

// The rules at the head of a piece: a packet a piece before has permitted, or one of another
// family, passes it by.
[[nodiscard]] std::vector<nftnl_rule*> pieceHead(Acl::AclType family);

// The implicit deny at the end of a list of the family: its packets that no entry permitted.
[[nodiscard]] nftnl_rule* implicitDeny(Acl::AclType family);

// Clears the permit mark.
[[nodiscard]] nftnl_rule* clearPermitMark();

}  // namespace Kernel::nft
