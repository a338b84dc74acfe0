// Every well-formed record of each family, with every field in play, reads back from its line
// as itself; and the generators here really do put every field of the records in play.
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>

#include "aclkit/text/AclText.h"
#include "tests/support/AclBuilders.h"
#include "tests/support/RecordProbe.h"
#include "tests/support/RuleGenerators.h"

namespace {

using namespace Acl;
using namespace build::generate;
namespace gen = rc::gen;

// Reproducible by default: a fixed seed and case count unless RC_PARAMS says otherwise.
const bool defaultParams = [] { return setenv("RC_PARAMS", ACLKIT_TEXT_PROPERTY_PARAMS, /*overwrite=*/0) == 0; }();

std::optional<U32> anySequence() {
  return coin() ? std::optional<U32>(*gen::arbitrary<U32>()) : std::nullopt;
}

template <class Rule>
void readsBackAsItself(Rule (*anyRule)(), AclType type) {
  Text::Entry entry{anySequence(), anyRule()};
  std::string line = Text::format(entry);
  RC_LOG() << line << "\n";
  RC_ASSERT(Text::parse(line, type) == entry);
}

RC_GTEST_PROP(AclTextPropertyTest, RulesOfEveryFamilyReadBackAsThemselves, ()) {
  readsBackAsItself(anyIpRule, AclType::ip);
  readsBackAsItself(anyIp6Rule, AclType::ipv6);
  readsBackAsItself(anyMacRule, AclType::mac);
}

RC_GTEST_PROP(AclTextPropertyTest, StandardRuleAndRemarkReadBackAsThemselves, ()) {
  const auto src = anyIp4Match();  // not a structured binding: the lambda below reads it
  Text::Entry standard{
      anySequence(),
      withActions(build::ruleWith<IpRuleConfig>([&](IpFilter& f) { f.srcIs(src.first), f.srcMaskIs(src.second); }))};
  RC_ASSERT(Text::parse(Text::format(standard, true), AclType::ip, true) == standard);
  // Any single-line text, leading and doubled blanks included.
  auto printable = gen::map(gen::inRange(32, 127), [](int c) { return static_cast<char>(c); });
  Text::Entry remark{anySequence(), RemarkConfig(String(*gen::container<std::string>(printable)))};
  RC_ASSERT(Text::parse(Text::format(remark), *gen::element(AclType::ip, AclType::ipv6, AclType::mac)) == remark);
}

// A field the generators never change would pass the properties untested: each must differ
// from its default in some generated record.
template <class Rule>
void everyFieldVaries(Rule (*anyRule)()) {
  std::vector<fwk::Value> samples;
  rc::Random random(20261123);
  for (int i = 0; i < 400; ++i) samples.emplace_back(gen::exec(anyRule)(random.split(), rc::kNominalSize).value());
  auto text = [](fwk::Value value, const probe::FieldPath& path) {
    for (const fwk::FieldInfo* field : path) value = field->get(value.data());
    return value.strep();
  };
  for (const probe::FieldPath& path : probe::leafFields(fwk::valueType<Rule>())) {
    const std::string def = text(fwk::Value{Rule()}, path);
    EXPECT_TRUE(std::ranges::any_of(samples, [&](const fwk::Value& s) { return text(s, path) != def; }))
        << fwk::valueType<Rule>().name << "." << probe::describe(path);
  }
}

TEST(AclTextPropertyTest, GeneratorsPutEveryFieldInPlay) {
  everyFieldVaries(anyIpRule);
  everyFieldVaries(anyIp6Rule);
  everyFieldVaries(anyMacRule);
}

}  // namespace
