#include "aclkit/model/Rules.h"

#include <charconv>
#include <cstdio>
#include <ostream>
#include <string>

#include "aclkit/platform/fwk/Define.h"

namespace Acl {

FWK_RECORD_DEFINE_FIELDS(RangeMatch, ACLKIT_ACL_RANGE_MATCH_FIELDS)
FWK_RECORD_DEFINE(PayloadValue, ACLKIT_ACL_PAYLOAD_VALUE_FIELDS)
FWK_RECORD_DEFINE_FIELDS(PayloadSpec, ACLKIT_ACL_PAYLOAD_SPEC_FIELDS)
FWK_RECORD_DEFINE(MplsLabelFilter, ACLKIT_ACL_MPLS_LABEL_FILTER_FIELDS)
FWK_RECORD_DEFINE(IpFilterBase, ACLKIT_ACL_IP_FILTER_BASE_FIELDS)
FWK_RECORD_DEFINE(IpFilter, ACLKIT_ACL_IP_FILTER_FIELDS)
FWK_RECORD_DEFINE(Ip6Filter, ACLKIT_ACL_IP6_FILTER_FIELDS)
FWK_RECORD_DEFINE(MacFilter, ACLKIT_ACL_MAC_FILTER_FIELDS)
FWK_RECORD_DEFINE(RuleConfig, ACLKIT_ACL_RULE_CONFIG_FIELDS)
FWK_RECORD_DEFINE(IpRuleConfig, ACLKIT_ACL_IP_RULE_CONFIG_FIELDS)
FWK_RECORD_DEFINE(Ip6RuleConfig, ACLKIT_ACL_IP6_RULE_CONFIG_FIELDS)
FWK_RECORD_DEFINE(MacRuleConfig, ACLKIT_ACL_MAC_RULE_CONFIG_FIELDS)
FWK_RECORD_DEFINE_FIELDS(RemarkConfig, ACLKIT_ACL_REMARK_CONFIG_FIELDS)

namespace {

std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  while (true) {
    auto at = text.find(separator);
    parts.push_back(text.substr(0, at));
    if (at == std::string_view::npos) return parts;
    text.remove_prefix(at + 1);
  }
}

template <class T>
bool readHex(std::string_view text, T& out) {
  if (!text.starts_with("0x") && !text.starts_with("0X")) return false;
  text.remove_prefix(2);
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), out, 16);
  return !text.empty() && ec == std::errc() && end == text.data() + text.size();
}

// Reads one "offset,pattern,mask,alias,flags" element; false when malformed.
bool readElement(std::string_view text, PayloadValue& value) {
  std::vector<std::string_view> f = split(text, ',');
  if (f.size() != 5) return false;
  U16 offset = 0;
  U32 pattern = 0;
  U32 mask = 0;
  auto [end, ec] = std::from_chars(f[0].data(), f[0].data() + f[0].size(), offset);
  if (f[0].empty() || ec != std::errc() || end != f[0].data() + f[0].size()) return false;
  if (!readHex(f[1], pattern) || !readHex(f[2], mask)) return false;
  if (f[4].find_first_not_of("pm") != std::string_view::npos) return false;
  value = PayloadValue();
  value.offsetIs(offset);
  value.patternIs(pattern);
  value.maskIs(mask);
  value.aliasIs(String(f[3]));
  value.ownPatternIs(f[4].find('p') != std::string_view::npos);
  value.ownMaskIs(f[4].find('m') != std::string_view::npos);
  return true;
}

std::vector<std::string_view> elements(std::string_view text) {
  std::vector<std::string_view> all;
  for (std::string_view part : split(text, ' ')) {
    if (!part.empty()) all.push_back(part);
  }
  return all;
}

}  // namespace

RangeMatch::RangeMatch(ValueOp op, U16 low, U16 high) {
  if (op == ValueOp::range && low > high) throw fwk::RangeError("RangeMatch::low > RangeMatch::high not allowed");
  opIs(op);
  lowIs(low);
  highIs(high);
}

namespace {
constexpr std::string_view rangeExpected = "a port match: any, eq N, neq N, lt N, gt N or range LOW HIGH";
}  // namespace

RangeMatch RangeMatch::fwkParse(std::string_view text) {
  std::vector<std::string_view> words;
  for (std::string_view w : split(text, ' ')) {
    if (!w.empty()) words.push_back(w);
  }
  if (words.empty()) fwk::parseFailed(rangeExpected, text);
  ValueOp op = fwk::enumFromName<ValueOp>(words[0]);
  std::size_t wanted = op == ValueOp::any ? 1 : op == ValueOp::range ? 3 : 2;
  if (words.size() != wanted) fwk::parseFailed(rangeExpected, text);
  U16 low = wanted > 1 ? fwk::parseValue<U16>(words[1]) : 0;
  U16 high = wanted > 2 ? fwk::parseValue<U16>(words[2]) : 0;
  return RangeMatch(op, low, high);
}

std::ostream& operator<<(std::ostream& os, const RangeMatch& match) {
  os << match.op();
  if (match.op() == ValueOp::any) return os;
  os << ' ' << match.low();
  if (match.op() == ValueOp::range) os << ' ' << match.high();
  return os;
}

PayloadSpec::PayloadSpec(String offsetPattern) {
  std::vector<std::string_view> all = elements(offsetPattern.view());
  PayloadValue scratch;
  for (std::string_view element : all) {
    if (!readElement(element, scratch)) {
      throw fwk::Error("malformed payload element '" + std::string(element) + "' in '" + offsetPattern.str() + "'");
    }
  }
  if (all.size() > 0xFFFF) throw fwk::RangeError("PayloadSpec::count > 65535 not allowed");
  offsetPatternIs(offsetPattern);
  countIs(static_cast<U16>(all.size()));
}

std::ostream& operator<<(std::ostream& os, const PayloadSpec& spec) {
  return os << "payload(" << spec.offsetPattern() << ")";
}

U16 payloadSpecToValue(PayloadValue* values, U16 count, const PayloadSpec& spec) {
  U16 filled = 0;
  for (std::string_view element : elements(spec.offsetPattern().view())) {
    if (filled == count) break;
    if (readElement(element, values[filled])) ++filled;
  }
  return filled;
}

String payloadValueToOffsetPattern(U16 count, const PayloadValue* values) {
  std::string text;
  char number[32];
  for (U16 i = 0; i < count; ++i) {
    const PayloadValue& v = values[i];
    if (i) text.push_back(' ');
    std::snprintf(number, sizeof number, "%u,0x%x,0x%x,", static_cast<unsigned>(v.offset()),
                  static_cast<unsigned>(v.pattern()), static_cast<unsigned>(v.mask()));
    text.append(number).append(v.alias().view()).push_back(',');
    if (v.ownPattern()) text.push_back('p');
    if (v.ownMask()) text.push_back('m');
  }
  return String(text);
}

void MplsFilter::labelIs(U32 label, const MplsLabelFilter& filter) {
  if (label > 0xFFFFF) throw fwk::RangeError("MplsFilter::label < 0 or > 0xFFFFF not allowed");
  labels_[label] = filter;
}

MplsLabelFilter MplsFilter::label(U32 label) const {
  auto it = labels_.find(label);
  return it == labels_.end() ? MplsLabelFilter() : it->second;
}

MplsFilter MplsFilter::fwkParse(std::string_view text) {
  MplsFilter filter;
  for (std::string_view word : elements(text)) {
    MplsLabelFilter f;
    f.labelIs(fwk::parseValue<U32>(word));
    filter.labelIs(f.label(), f);
  }
  return filter;
}

std::size_t MplsFilter::hash(std::uint32_t seed) const noexcept {
  std::size_t h = fwk::mixHash(seed);
  for (const auto& [label, filter] : labels_) h = fwk::hashCombine(fwk::hashCombine(h, label), filter.hash());
  return h;
}

std::ostream& operator<<(std::ostream& os, const MplsFilter& filter) {
  os << "mpls(";
  bool first = true;
  for (const auto& [label, f] : filter.labels()) {
    os << (first ? "" : " ") << f;
    first = false;
  }
  return os << ")";
}

std::ostream& operator<<(std::ostream& os, const RemarkConfig& remark) {
  return os << "remark " << remark.text();
}

}  // namespace Acl
