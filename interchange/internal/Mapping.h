// What the OpenConfig mapping (OpenConfig.cpp) is declared with: a reader that takes a
// document's members one by one and answers for the ones it did not take, and rows, each one
// leaf of an entry and the model fields it stands for, that reading and writing both go through.
//
//   row("transport", "source-port", match<Rule, &F::srcPort, &F::srcPortIs>(), port)
//
// reads transport/config/source-port into the filter's srcPort and writes it back from there.
#pragma once

#include <algorithm>
#include <cassert>
#include <exception>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "aclkit/interchange/OpenConfig.h"
#include "aclkit/platform/fwk/Value.h"

namespace Interchange::internal {

using nlohmann::json;

// "openconfig-acl:ACL_IPV4" and "ACL_IPV4" name the same identity.
std::string_view bare(std::string_view name);
// A number, or a string of digits (RFC 7951 writes 64-bit numbers so, and some writers every
// number).
std::optional<std::uint64_t> numberIn(const json& value);

// Where a reader is in the document, for its findings and errors.
struct Place {
  std::vector<Finding>* findings = nullptr;
  std::string list;             // "web (ACL_IPV4)"; empty outside a set
  std::optional<U32> sequence;  // inside an entry
  const char* whole = nullptr;  // "entry", "list", "bindings": a member not taken fails the import,
                                // since leaving it out changes that; null: it is only noted
};

// One JSON object being read: the members taken are the ones the model knows; done() answers
// for the rest (every reader must get there, or fail).
class Reader {
 public:
  Reader(const json& object, std::string path, Place place);
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;
  ~Reader() { assert(done_ || std::uncaught_exceptions() != 0); }

  void done();
  [[nodiscard]] const json* take(std::string_view name);
  [[nodiscard]] std::string pathOf(std::string_view name) const;
  [[nodiscard]] const Place& place() const { return place_; }
  void note(std::string_view name, const std::string& what);
  // ImportError "web (ACL_IPV4) entry 10: <path>/<name>: <text>".
  [[noreturn]] void error(std::string_view name, const std::string& text) const;
  // A value that is not what the document's schema allows there.
  [[noreturn]] void fail(const std::string& expected, std::string_view name = {}) const {
    error(name, "expected " + expected);
  }
  // A value that is well-formed but that the model cannot hold exactly.
  [[noreturn]] void refuse(std::string_view name, const std::string& why) const;

  [[nodiscard]] std::string text(std::string_view name, bool required = false);
  [[nodiscard]] std::optional<std::uint64_t> number(std::string_view name, std::uint64_t max);

 private:
  const json& object_;
  std::string path_;
  Place place_;
  std::set<std::string, std::less<>> taken_;
  bool done_ = false;
};

// A model value of a rule as one V: how the rule gives it and takes it.
template <class Rule, class V>
struct Access {
  std::function<V(const Rule&)> get;
  std::function<void(Rule&, const V&)> set;
};

// A field of the rule itself, by getter and setter.
template <class Rule, auto get, auto set>
auto ruleField() {
  using V = std::remove_cvref_t<std::invoke_result_t<decltype(get), const Rule&>>;
  return Access<Rule, V>{[](const Rule& r) { return std::invoke(get, r); },
                         [](Rule& r, const V& v) { std::invoke(set, r, v); }};
}

// A field of the rule's filter, by getter and setter; or two, as one pair (a value and its mask).
template <class Rule, auto get, auto set>
auto match() {
  using F = std::remove_cvref_t<decltype(std::declval<const Rule&>().filter())>;
  using V = std::remove_cvref_t<std::invoke_result_t<decltype(get), const F&>>;
  return Access<Rule, V>{[](const Rule& r) { return std::invoke(get, r.filter()); },
                         [](Rule& r, const V& v) {
                           F f = r.filter();
                           std::invoke(set, f, v);
                           r.filterIs(f);
                         }};
}
template <class Rule, auto get1, auto set1, auto get2, auto set2>
auto match() {
  using F = std::remove_cvref_t<decltype(std::declval<const Rule&>().filter())>;
  using V = std::pair<std::remove_cvref_t<std::invoke_result_t<decltype(get1), const F&>>,
                      std::remove_cvref_t<std::invoke_result_t<decltype(get2), const F&>>>;
  return Access<Rule, V>{[](const Rule& r) { return V(std::invoke(get1, r.filter()), std::invoke(get2, r.filter())); },
                         [](Rule& r, const V& v) {
                           F f = r.filter();
                           std::invoke(set1, f, v.first);
                           std::invoke(set2, f, v.second);
                           r.filterIs(f);
                         }};
}

// How a leaf's value converts. `read` gives the model value when the leaf is in `config`, and
// refuses what it cannot take exactly; `write` puts the leaf into `config`, or nothing when the
// value matches everything or has no form there (the export's read-back then names it).
template <class V>
struct Codec {
  std::function<std::optional<V>(Reader& config, const std::string& leaf)> read;
  std::function<void(const V& value, const std::string& leaf, json& config)> write;
};

template <class Rule>
struct Row {
  std::string container;  // below the entry, its leaves under "config": "ipv4", "ipv4/icmpv4"
  std::string leaf;
  bool required = false;
  std::function<bool(Reader& config, Rule& rule)> read;  // false when the leaf is not there
  std::function<void(const Rule& rule, json& config)> write;
};

template <class Rule, class V>
Row<Rule> row(const std::string& container, const std::string& leaf, Access<Rule, V> field, Codec<V> codec,
              bool required = false) {
  return {container, leaf, required,
          [=](Reader& config, Rule& rule) {
            const std::optional<V> value = codec.read(config, leaf);
            if (value) field.set(rule, *value);
            return value.has_value();
          },
          [=](const Rule& rule, json& config) { codec.write(field.get(rule), leaf, config); }};
}

// The containers below `at` (the entry, or a container of it at `path`) that rows name, each with
// its config's leaves and its own containers. `seen` gets the rows whose leaf was there.
template <class Rule>
void readRows(Reader& at, const std::string& path, const std::vector<Row<Rule>>& rows, Rule& rule,
              std::vector<bool>& seen) {
  if (!path.empty()) {
    if (const json* config = at.take("config")) {
      Reader c(*config, at.pathOf("config"), at.place());
      for (std::size_t i = 0; i < rows.size(); ++i) {
        if (rows[i].container == path && rows[i].read(c, rule)) seen[i] = true;
      }
      c.done();
    }
  }
  const std::string prefix = path.empty() ? path : path + "/";
  std::vector<std::string> children;
  for (const Row<Rule>& r : rows) {
    if (r.container.size() <= prefix.size() || !r.container.starts_with(prefix)) continue;
    const std::string child = r.container.substr(prefix.size(), r.container.find('/', prefix.size()) - prefix.size());
    if (std::find(children.begin(), children.end(), child) == children.end()) children.push_back(child);
  }
  for (const std::string& child : children) {
    if (const json* object = at.take(child)) {
      Reader c(*object, at.pathOf(child), at.place());
      readRows(c, prefix + child, rows, rule, seen);
      c.done();
    }
  }
}

// Reads an entry's rule through every row; a required leaf missing fails.
template <class Rule>
Rule readRule(Reader& entry, const std::vector<Row<Rule>>& rows) {
  Rule rule;
  std::vector<bool> seen(rows.size());
  readRows(entry, "", rows, rule, seen);
  for (std::size_t i = 0; i < rows.size(); ++i) {
    if (rows[i].required && !seen[i]) entry.fail(rows[i].container + "/config/" + rows[i].leaf);
  }
  return rule;
}

// The entry's containers, written through every row; a container nothing was written to is left out.
template <class Rule>
json writeRule(const Rule& rule, const std::vector<Row<Rule>>& rows) {
  std::map<std::string, json> configs;
  for (const Row<Rule>& r : rows) {
    json& config = configs[r.container];
    if (config.is_null()) config = json::object();
    r.write(rule, config);
  }
  json entry = json::object();
  for (auto& [container, config] : configs) {
    if (!config.empty()) entry[json::json_pointer("/" + container + "/config")] = std::move(config);
  }
  return entry;
}

// The fields of `rule` (its own, then its filter's) that `other` does not hold alike:
// "dstPort=neq 80, vlan=10". Empty when the two are equal.
template <class Rule>
std::string differences(const Rule& rule, const Rule& other) {
  std::string out;
  auto compare = [&](const std::vector<fwk::FieldInfo>& fields, const void* a, const void* b) {
    for (const fwk::FieldInfo& field : fields) {
      if (field.name == "filter") continue;
      const std::string value = field.get(a).strep();
      if (value == field.get(b).strep()) continue;
      if (!out.empty()) out += ", ";
      out.append(field.name.view()).append("=").append(value);
    }
  };
  compare(Rule::fwkFields(), &rule, &other);
  compare(std::remove_cvref_t<decltype(rule.filter())>::fwkFields(), &rule.filter(), &other.filter());
  return out;
}

}  // namespace Interchange::internal
