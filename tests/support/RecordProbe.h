// Walks every leaf field of a record through reflection and makes values that differ, so a
// test can change one field at a time and see that ==, < and hash notice.
#pragma once

#include <string>
#include <vector>

#include "aclkit/platform/fwk/Value.h"

namespace probe {

using FieldPath = std::vector<const fwk::FieldInfo*>;

// Every path from the record type down to a field that is not itself a record.
std::vector<FieldPath> leafFields(const fwk::ValueType& recordType);
// The path as "filter.dstPort.op".
std::string describe(const FieldPath& path);
// Changes the field at `path` of the record held in `record` to a different value.
void perturb(fwk::Value& record, const FieldPath& path, std::size_t depth = 0);

}  // namespace probe
