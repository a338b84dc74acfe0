#include "tests/support/RecordProbe.h"

#include "aclkit/platform/fwk/Errors.h"

namespace probe {

namespace {
void collect(const fwk::ValueType& type, FieldPath& prefix, std::vector<FieldPath>& out) {
  for (const fwk::FieldInfo& field : type.fields()) {
    prefix.push_back(&field);
    if (field.type->fields) {
      collect(*field.type, prefix, out);
    } else {
      out.push_back(prefix);
    }
    prefix.pop_back();
  }
}

// A value of `type` that differs from `current` (throws when it cannot make one).
fwk::Value different(const fwk::ValueType& type, const fwk::Value& current) {
  std::string now = current.strep();
  if (type.enumInfo) {
    for (const auto& e : type.enumInfo->enumerators()) {
      if (e.name != now) return type.parse(e.name.view());
    }
  }
  for (const char* text : {"1", "2", "x", "192.0.2.1", "2001:db8::1", "00:00:5e:00:53:01", "2,0x1,0x1,,", "eq 80"}) {
    try {
      fwk::Value v = type.parse(text);
      if (v.strep() != now) return v;
    } catch (const fwk::Error&) {
    }
  }
  throw fwk::Error("cannot make a different " + type.name.str());
}
}  // namespace

std::vector<FieldPath> leafFields(const fwk::ValueType& recordType) {
  std::vector<FieldPath> out;
  FieldPath prefix;
  collect(recordType, prefix, out);
  return out;
}

std::string describe(const FieldPath& path) {
  std::string text;
  for (const fwk::FieldInfo* f : path) {
    if (!text.empty()) text.push_back('.');
    text.append(f->name.view());
  }
  return text;
}

void perturb(fwk::Value& record, const FieldPath& path, std::size_t depth) {
  const fwk::FieldInfo& field = *path[depth];
  fwk::Value value = field.get(record.data());
  if (depth + 1 == path.size()) {
    value = different(*field.type, value);
  } else {
    perturb(value, path, depth + 1);
  }
  field.set(record.data(), value);
}

}  // namespace probe
