// The whole of some entity trees as one text, through reflection: every entity reachable
// from the roots by children collections or by references, each attribute by name, entity
// references by identity (the entity's creation serial), hash maps in key order. Two
// snapshots are equal exactly when the trees hold the same values and the same entities;
// a test takes one before an operation and compares after it failed.
#pragma once

#include <initializer_list>
#include <string>
#include <vector>

#include "aclkit/platform/fwk/Entity.h"

namespace build {

std::string storeSnapshot(std::initializer_list<const fwk::Entity*> roots);

// The entities a snapshot describes, in the order it describes them.
std::vector<const fwk::Entity*> reachableEntities(std::initializer_list<const fwk::Entity*> roots);

}  // namespace build
