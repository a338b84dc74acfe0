// Reading one ACL line: a tokenizer that keeps each word's column, then a recursive descent
// over the clauses. Every value is checked against what the records accept before it is set,
// so a range error of a record setter never reaches the caller as anything but a ParseError.
#include <charconv>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "aclkit/platform/fwk/Errors.h"
#include "aclkit/text/AclText.h"
#include "aclkit/text/internal/Names.h"

namespace Text {

using namespace Acl;
using internal::equalsIgnoringCase;
using internal::Name;

ParseError::ParseError(std::size_t column, std::string expected)
    : std::runtime_error("expected " + expected + " at column " + std::to_string(column)),
      column_(column),
      expected_(std::move(expected)) {}

namespace {

struct Token {
  std::string_view text;
  std::size_t column;
};

bool isBlank(char c) {
  return c == ' ' || c == '\t';
}

// The words of a line with their columns, and the reader's position among them. A probing
// cursor also notes, where the line ends, every keyword, name and value the reader looks
// for there: that is what may be typed next, straight from the reader.
class Cursor {
 public:
  explicit Cursor(std::string_view line, Choices* probe = nullptr) : line_(line), probe_(probe) {
    std::size_t i = 0;
    while (i < line.size()) {
      if (isBlank(line[i])) {
        ++i;
        continue;
      }
      std::size_t start = i;
      while (i < line.size() && !isBlank(line[i])) ++i;
      tokens_.push_back(Token{line.substr(start, i - start), start + 1});
    }
  }

  [[nodiscard]] bool atEnd() const { return at_ == tokens_.size(); }
  [[nodiscard]] std::string_view peek() const { return atEnd() ? std::string_view() : tokens_[at_].text; }
  [[nodiscard]] bool peekIs(std::string_view keyword) const {
    if (atEnd()) offer(Choice::Kind::keyword, keyword);
    return !atEnd() && equalsIgnoringCase(peek(), keyword);
  }
  // Whether the options go on: while words are left, and once more at the end of the line
  // when probing, so that every option is asked for there.
  bool more() {
    if (!atEnd()) return true;
    if (!probe_ || probe_->complete) return false;
    probe_->complete = true;
    return true;
  }
  // What follows is free text, whatever it holds, and none is whole too.
  void textFollows(std::string_view what) const {
    if (!probe_) return;
    probe_->next.push_back(Choice{Choice::Kind::value, std::string(what), ""});
    probe_->complete = true;
  }
  // Notes names a value could be given by, and a value described by `what`, when the line
  // ends here and the cursor is probing.
  void offer(std::span<const Name> names) const {
    for (const Name& name : names) offer(Choice::Kind::name, name.name);
  }
  void offer(Choice::Kind kind, std::string_view text) const {
    if (!probe_ || !atEnd()) return;
    const auto same = [&](const Choice& c) { return c.kind == kind && c.text == text; };
    if (std::none_of(probe_->next.begin(), probe_->next.end(), same)) {
      probe_->next.push_back(Choice{kind, std::string(text), kind == Choice::Kind::keyword ? keywordHelp(text) : ""});
    }
  }
  // Consumes the next word when it is `keyword`.
  bool accept(std::string_view keyword) {
    if (!peekIs(keyword)) return false;
    ++at_;
    return true;
  }
  // Steps over a word already looked at.
  void advance() { ++at_; }
  // The next word, whatever it is; at the end of the line, fails saying `what` was needed.
  Token take(std::string_view what) {
    if (atEnd()) {
      offer(Choice::Kind::value, what);
      fail(what);
    }
    return tokens_[at_++];
  }
  // Where the next word starts, or one past the end of the line.
  [[nodiscard]] std::size_t column() const { return atEnd() ? line_.size() + 1 : tokens_[at_].column; }
  // The line after the word just taken and the one blank that follows it.
  [[nodiscard]] std::string_view restAfterPrevious() const {
    const Token& previous = tokens_[at_ - 1];
    std::size_t end = previous.column - 1 + previous.text.size();
    return end < line_.size() ? line_.substr(end + 1) : std::string_view();
  }
  [[noreturn]] void fail(std::string_view what) const { throw ParseError(column(), std::string(what)); }
  [[noreturn]] static void failAt(const Token& token, std::string_view what) {
    throw ParseError(token.column, std::string(what));
  }

 private:
  std::string_view line_;
  Choices* probe_;
  std::vector<Token> tokens_;
  std::size_t at_ = 0;
};

// Options given so far, so that each is given once.
class Seen {
 public:
  // Consumes the next word when it is `keyword`; fails when that option was given before.
  bool option(Cursor& in, std::string_view keyword) { return option(in, keyword, keyword); }
  // The same for a word that is another spelling of option `clause` ("nvgre" of "gre-proto").
  bool option(Cursor& in, std::string_view word, std::string_view clause) {
    const bool given = given_.contains(std::string(clause));
    if (given && in.atEnd()) return false;  // not offered a second time
    if (!in.peekIs(word)) return false;
    if (given) in.fail("no second " + std::string(clause));
    given_.insert(std::string(clause));
    in.accept(word);
    return true;
  }

 private:
  std::set<std::string> given_;
};

std::optional<U64> readDigits(std::string_view text, int base) {
  U64 value = 0;
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value, base);
  if (text.empty() || ec != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

// Decimal, or hex after "0x"; no sign.
std::optional<U64> readUnsigned(std::string_view text) {
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) return readDigits(text.substr(2), 16);
  return readDigits(text, 10);
}

std::string upTo(std::string_view thing, U64 max) {
  return std::string(thing) + " from 0 to " + std::to_string(max);
}

std::string maskUpTo(std::string_view thing, U64 max) {
  char hex[24];
  auto end = std::to_chars(hex, hex + sizeof hex, max, 16).ptr;
  return std::string(thing) + " mask from 0x0 to 0x" + std::string(hex, end);
}

U64 number(Cursor& in, std::string_view what, U64 max) {
  Token t = in.take(what);
  std::optional<U64> value = readUnsigned(t.text);
  if (!value || *value > max) Cursor::failAt(t, what);
  return *value;
}

U64 numberOrName(Cursor& in, std::span<const Name> names, std::string_view what, U64 max) {
  in.offer(names);
  Token t = in.take(what);
  std::optional<U64> value = readUnsigned(t.text);
  if (!value) value = internal::valueOf(names, t.text);
  if (!value || *value > max) Cursor::failAt(t, what);
  return *value;
}

// "V [mask M]" where a missing mask is the field's full width `max`.
std::pair<U64, U64> maskedValue(Cursor& in, std::span<const Name> names, std::string_view thing, U64 max) {
  U64 value = numberOrName(in, names, upTo(thing, max), max);
  U64 mask = in.accept("mask") ? number(in, maskUpTo(thing, max), max) : max;
  return {value, mask};
}

// The operator the next word names, consumed; `range` only when it may be one.
std::optional<ValueOp> valueOp(Cursor& in, bool rangeToo = true) {
  for (ValueOp op : {ValueOp::eq, ValueOp::neq, ValueOp::lt, ValueOp::gt, ValueOp::range}) {
    if ((rangeToo || op != ValueOp::range) && in.accept(stringValue(op).view())) return op;
  }
  return std::nullopt;
}

// "eq V" | "neq V" | "lt V" | "gt V" | "range L H"; `what` names one value.
RangeMatch rangeMatch(Cursor& in, std::span<const Name> names, std::string_view what) {
  std::optional<ValueOp> op = valueOp(in);
  if (!op) in.fail("eq, neq, lt, gt or range");
  auto low = static_cast<U16>(numberOrName(in, names, what, 0xFFFF));
  if (*op != ValueOp::range) return RangeMatch(*op, low);
  std::size_t highColumn = in.column();
  auto high = static_cast<U16>(numberOrName(in, names, what, 0xFFFF));
  if (high < low) throw ParseError(highColumn, std::string(what) + " not below " + std::to_string(low));
  return RangeMatch(ValueOp::range, low, high);
}

template <class Addr>
std::optional<Addr> readAddress(std::string_view text) {
  try {
    return Addr::fwkParse(text);
  } catch (const fwk::Error&) {
    return std::nullopt;
  }
}

// any | host A | A/len | A WILDCARD, where the wildcard's set bits are the ones not matched.
// An address with bits set where the mask does not look is refused rather than silently
// cleared: the rule would match more than the line seems to say.
std::pair<Ip4Addr, Ip4Addr> ip4Address(Cursor& in, std::string_view what) {
  if (in.accept("any")) return {};
  if (in.accept("host")) {
    Token t = in.take("an IPv4 address");
    std::optional<Ip4Addr> addr = readAddress<Ip4Addr>(t.text);
    if (!addr) Cursor::failAt(t, "an IPv4 address");
    return {*addr, Ip4Addr(0xFFFFFFFF)};
  }
  Token t = in.take(what);
  std::size_t slash = t.text.find('/');
  std::optional<Ip4Addr> addr = readAddress<Ip4Addr>(t.text.substr(0, slash));
  if (!addr) Cursor::failAt(t, what);
  if (slash != std::string_view::npos) {
    std::optional<U64> length = readDigits(t.text.substr(slash + 1), 10);
    if (!length || *length > 32) Cursor::failAt(t, "a prefix length from 0 to 32");
    U32 mask = Ip4Addr::prefixMask(static_cast<unsigned>(*length)).value();
    if (addr->value() & ~mask)
      Cursor::failAt(t, "a network address (host bits of " + std::string(t.text) + " are set)");
    return {*addr, Ip4Addr(mask)};
  }
  Token w = in.take("an IPv4 wildcard or /length");
  std::optional<Ip4Addr> wildcard = readAddress<Ip4Addr>(w.text);
  if (!wildcard) Cursor::failAt(w, "an IPv4 wildcard or /length");
  if (addr->value() & wildcard->value()) {
    Cursor::failAt(
        t, "a network address (don't-care bits of " + std::string(t.text) + ' ' + std::string(w.text) + " are set)");
  }
  return {*addr, Ip4Addr(~wildcard->value())};
}

// any | host A | A/len, with no bit set past the length (as for IPv4)
std::pair<Ip6Addr, U8> ip6Address(Cursor& in, std::string_view what) {
  if (in.accept("any")) return {};
  if (in.accept("host")) {
    Token t = in.take("an IPv6 address");
    std::optional<Ip6Addr> addr = readAddress<Ip6Addr>(t.text);
    if (!addr) Cursor::failAt(t, "an IPv6 address");
    return {*addr, 128};
  }
  Token t = in.take(what);
  std::size_t slash = t.text.find('/');
  std::optional<Ip6Addr> addr = readAddress<Ip6Addr>(t.text.substr(0, slash));
  if (!addr || slash == std::string_view::npos) Cursor::failAt(t, what);
  std::optional<U64> length = readDigits(t.text.substr(slash + 1), 10);
  if (!length || *length > 128) Cursor::failAt(t, "a prefix length from 0 to 128");
  if (addr->network(static_cast<unsigned>(*length)) != *addr) {
    Cursor::failAt(t, "a network address (host bits of " + std::string(t.text) + " are set)");
  }
  return {*addr, static_cast<U8>(*length)};
}

// any | host M | M MASK
std::pair<MacAddr, MacAddr> macAddress(Cursor& in, std::string_view what) {
  if (in.accept("any")) return {};
  if (in.accept("host")) {
    Token t = in.take("a MAC address");
    std::optional<MacAddr> addr = readAddress<MacAddr>(t.text);
    if (!addr) Cursor::failAt(t, "a MAC address");
    return {*addr, MacAddr(0xFFFFFFFFFFFFULL)};
  }
  Token t = in.take(what);
  std::optional<MacAddr> addr = readAddress<MacAddr>(t.text);
  if (!addr) Cursor::failAt(t, what);
  Token m = in.take("a MAC mask");
  std::optional<MacAddr> mask = readAddress<MacAddr>(m.text);
  if (!mask) Cursor::failAt(m, "a MAC mask");
  return {*addr, *mask};
}

// log | mirror SESSION | copy-to-cpu | count: what every family's rules may do.
bool actionOption(Cursor& in, RuleConfig& rule, Seen& seen) {
  if (seen.option(in, "log")) {
    rule.logIs(true);
  } else if (seen.option(in, "mirror")) {
    rule.mirrorSessionIs(String(in.take("a mirror session name").text));
  } else if (seen.option(in, "copy-to-cpu")) {
    rule.copyToCpuIs(true);
  } else if (seen.option(in, "count")) {
    rule.countIs(true);
  } else {
    return false;
  }
  return true;
}

// payload OFFSET PATTERN MASK [alias NAME] [own-pattern] [own-mask]
PayloadValue payloadElement(Cursor& in) {
  PayloadValue element;
  element.offsetIs(static_cast<U16>(number(in, upTo("a payload offset", 0xFFFF), 0xFFFF)));
  element.patternIs(static_cast<U32>(number(in, "a payload pattern from 0x0 to 0xffffffff", 0xFFFFFFFF)));
  element.maskIs(static_cast<U32>(number(in, maskUpTo("a payload", 0xFFFFFFFF), 0xFFFFFFFF)));
  Seen parts;
  while (true) {
    if (parts.option(in, "alias")) {
      // The library keeps elements as comma-separated text, so a name cannot hold a comma.
      Token name = in.take("an alias name");
      if (name.text.find(',') != std::string_view::npos) Cursor::failAt(name, "an alias name without commas");
      element.aliasIs(String(name.text));
    } else if (parts.option(in, "own-pattern")) {
      element.ownPatternIs(true);
    } else if (parts.option(in, "own-mask")) {
      element.ownMaskIs(true);
    } else {
      return element;
    }
  }
}

PayloadSpec payloadOf(const std::vector<PayloadValue>& elements, const Cursor& in) {
  if (elements.size() > 0xFFFF) in.fail("at most 65535 payload elements");
  return PayloadSpec(payloadValueToOffsetPattern(static_cast<U16>(elements.size()), elements.data()));
}

// "syn" (must be set), "!syn" (must be clear), "established" (ack set).
bool tcpFlagOption(Cursor& in, IpFilterBase& f) {
  if (in.atEnd()) {
    in.offer(internal::tcpFlagNames());
    in.offer(Choice::Kind::keyword, "established");
    return false;
  }
  std::string_view word = in.peek();
  bool clear = word.starts_with('!');
  std::string_view name = clear ? word.substr(1) : word;
  std::optional<unsigned> bit = internal::valueOf(internal::tcpFlagNames(), name);
  if (!clear && equalsIgnoringCase(name, "established")) bit = *internal::valueOf(internal::tcpFlagNames(), "ack");
  if (!bit) return false;
  if (f.tcpFlagsMask() & *bit) in.fail("each TCP flag once");
  in.advance();
  f.tcpFlagsMaskIs(static_cast<U16>(f.tcpFlagsMask() | *bit));
  if (!clear) f.tcpFlagsIs(static_cast<U16>(f.tcpFlags() | *bit));
  return true;
}

// "[eq|neq|lt|gt] V": without an operator the value is kept with kind any.
std::pair<ValueOp, U8> limitClause(Cursor& in, std::string_view thing) {
  const ValueOp kind = valueOp(in, false).value_or(ValueOp::any);
  return {kind, static_cast<U8>(number(in, upTo(thing, 255), 255))};
}

// Whether a port match comes next (the reader then takes its operator itself).
bool portFollows(const Cursor& in) {
  for (ValueOp op : {ValueOp::eq, ValueOp::neq, ValueOp::lt, ValueOp::gt, ValueOp::range}) {
    if (in.peekIs(stringValue(op).view())) return true;
  }
  return false;
}

template <class Rule>
constexpr bool isIp4 = std::is_same_v<Rule, IpRuleConfig>;

template <class Rule>
void ipProtocol(Cursor& in, IpFilterBase& f) {
  const char* what = "a protocol name or number";
  if (in.accept("ip") || (!isIp4<Rule> && in.accept("ipv6"))) {
    f.protocolIs(0);
    f.protocolMaskIs(0);
  } else {
    auto names = isIp4<Rule> ? internal::ipProtocolNames() : internal::ip6ProtocolNames();
    f.protocolIs(static_cast<U8>(numberOrName(in, names, what, 0xFF)));
    f.protocolMaskIs(0xFF);
  }
  if (in.accept("mask")) f.protocolMaskIs(static_cast<U8>(number(in, maskUpTo("a protocol", 0xFF), 0xFF)));
}

// "[TYPE [CODE]]" right after the destination of an ICMP rule.
template <class Rule>
void icmpMessage(Cursor& in, IpFilterBase& f) {
  constexpr U8 icmp = isIp4<Rule> ? 1 : 58;
  if (f.protocol() != icmp || f.protocolMask() != 0xFF) return;
  auto names = isIp4<Rule> ? internal::icmpTypeNames() : internal::icmp6TypeNames();
  const char* type = "an ICMP type number or name";
  in.offer(names);
  in.offer(Choice::Kind::value, type);
  if (in.atEnd() || (!readUnsigned(in.peek()) && !internal::valueOf(names, in.peek()))) return;
  f.icmpTypeIs(static_cast<U16>(numberOrName(in, names, type, 255)));
  in.offer(Choice::Kind::value, upTo("an ICMP code", 255));
  if (readUnsigned(in.peek())) f.icmpCodeIs(static_cast<U16>(number(in, upTo("an ICMP code", 255), 255)));
}

std::pair<U16, U16> vlanMatch(Cursor& in) {
  auto [value, mask] = maskedValue(in, {}, "a VLAN", 4095);
  return {static_cast<U16>(value), static_cast<U16>(mask)};
}

// The options only one IP family has.
bool familyOption(Cursor& in, IpRuleConfig& rule, IpFilter& f, Seen& seen) {
  if (seen.option(in, "ttl")) {
    auto [kind, ttl] = limitClause(in, "a TTL");
    f.ttlKindIs(kind);
    f.ttlIs(ttl);
  } else if (seen.option(in, "vlan")) {
    auto [vlan, mask] = vlanMatch(in);
    f.vlanIs(vlan);
    f.vlanMaskIs(mask);
  } else if (seen.option(in, "tracked")) {
    f.trackedIs(true);
  } else if (seen.option(in, "vacl")) {
    rule.vaclIs(true);
  } else {
    return false;
  }
  return true;
}

bool familyOption(Cursor& in, Ip6RuleConfig&, Ip6Filter& f, Seen& seen) {
  if (!seen.option(in, "hop-limit")) return false;
  auto [kind, hopLimit] = limitClause(in, "a hop limit");
  f.hopLimitKindIs(kind);
  f.hopLimitIs(hopLimit);
  return true;
}

// The source (or destination) of an IP filter, as its family writes addresses: IPv4 with a
// prefix length or wildcard, IPv6 with a prefix length.
template <class Filter>
void sourceIs(Cursor& in, Filter& f) {
  if constexpr (std::is_same_v<Filter, Ip6Filter>) {
    auto [src, length] = ip6Address(in, "a source prefix, host or any");
    f.srcIs(src);
    f.srcPrefixLenIs(length);
  } else {
    auto [src, mask] = ip4Address(in, "a source address, host or any");
    f.srcIs(src);
    f.srcMaskIs(mask);
  }
}
template <class Filter>
void destinationIs(Cursor& in, Filter& f) {
  if constexpr (std::is_same_v<Filter, Ip6Filter>) {
    auto [dst, length] = ip6Address(in, "a destination prefix, host or any");
    f.dstIs(dst);
    f.dstPrefixLenIs(length);
  } else {
    auto [dst, mask] = ip4Address(in, "a destination address, host or any");
    f.dstIs(dst);
    f.dstMaskIs(mask);
  }
}

template <class Rule>
Rule ipRule(Cursor& in, RuleAction action, bool standard) {
  Rule rule;
  rule.actionIs(action);
  auto f = rule.filter();
  Seen seen;
  if constexpr (isIp4<Rule>) {
    if (standard) {
      sourceIs(in, f);
      rule.filterIs(f);
      while (in.more()) {
        if (!actionOption(in, rule, seen)) in.fail("log, mirror, copy-to-cpu, count or the end of the line");
      }
      return rule;
    }
  }
  ipProtocol<Rule>(in, f);
  sourceIs(in, f);
  if (portFollows(in)) f.srcPortIs(rangeMatch(in, internal::portNames(), "a port number or name"));
  destinationIs(in, f);
  if (portFollows(in)) f.dstPortIs(rangeMatch(in, internal::portNames(), "a port number or name"));
  icmpMessage<Rule>(in, f);

  std::vector<PayloadValue> payload;
  while (in.more()) {
    if (tcpFlagOption(in, f) || actionOption(in, rule, seen)) continue;
    if (seen.option(in, "dscp")) {
      auto [dscp, mask] = maskedValue(in, internal::dscpNames(), "a DSCP value", 63);
      f.matchDscpIs(true);
      f.dscpIs(static_cast<U8>(dscp));
      f.dscpMaskIs(static_cast<U8>(mask));
    } else if (seen.option(in, "ecn")) {
      f.matchEcnIs(true);
      f.ecnIs(static_cast<U8>(number(in, upTo("an ECN value", 3), 3)));
    } else if (seen.option(in, "ip-length")) {
      f.ipLengthIs(rangeMatch(in, {}, "an IP length from 0 to 65535"));
    } else if (seen.option(in, "outer-vlan")) {
      auto [vlan, mask] = vlanMatch(in);
      f.outerVlanIs(vlan);
      f.outerVlanMaskIs(mask);
    } else if (seen.option(in, "inner-vlan")) {
      auto [vlan, mask] = vlanMatch(in);
      f.innerVlanIs(vlan);
      f.innerVlanMaskIs(mask);
    } else if (seen.option(in, "gre-proto")) {
      auto [proto, mask] = maskedValue(in, {}, "a GRE protocol type", 0xFFFF);
      f.greProtoIs(static_cast<U16>(proto));
      f.greProtoMaskIs(static_cast<U16>(mask));
    } else if (seen.option(in, "nvgre", "gre-proto")) {
      f.greProtoIs(IpFilterBase::greProtoNvgre);
      f.greProtoMaskIs(0xFFFF);
    } else if (seen.option(in, "tni")) {
      f.tniIs(static_cast<U32>(number(in, upTo("a TNI", 16777215), 16777215)));
    } else if (seen.option(in, "vxlan")) {
      f.vxlanIs(true);
    } else if (seen.option(in, "vni")) {
      f.vniIs(static_cast<U32>(number(in, upTo("a VNI", 16777215), 16777215)));
    } else if (seen.option(in, "gtp")) {
      f.gtpIs(true);
    } else if (seen.option(in, "teid")) {
      f.teidIs(static_cast<U32>(number(in, upTo("a TEID", 0xFFFFFFFF), 0xFFFFFFFF)));
    } else if (seen.option(in, "user-l4")) {
      auto [value, mask] = maskedValue(in, {}, "a user L4 value", 0xFFFFFFFF);
      f.userL4Is(static_cast<U32>(value));
      f.userL4MaskIs(static_cast<U32>(mask));
    } else if (in.accept("payload")) {
      payload.push_back(payloadElement(in));
    } else if (seen.option(in, "vrf")) {
      Token name = in.take("a VRF name");
      if (name.text.size() > VrfName::maxLength) Cursor::failAt(name, "a VRF name of at most 100 characters");
      f.vrfIs(VrfName(String(name.text)));
    } else if (!familyOption(in, rule, f, seen)) {
      in.fail("an option or the end of the line");
    }
  }
  if (!payload.empty()) f.payloadIs(payloadOf(payload, in));
  rule.filterIs(f);
  return rule;
}

MacRuleConfig macRule(Cursor& in, RuleAction action) {
  MacRuleConfig rule;
  rule.actionIs(action);
  MacFilter f;
  auto [src, srcMask] = macAddress(in, "a source MAC address, host or any");
  f.srcIs(src);
  f.srcMaskIs(srcMask);
  auto [dst, dstMask] = macAddress(in, "a destination MAC address, host or any");
  f.dstIs(dst);
  f.dstMaskIs(dstMask);

  Seen seen;
  std::vector<PayloadValue> payload;
  while (in.more()) {
    if (actionOption(in, rule, seen)) continue;
    if (seen.option(in, "ethertype")) {
      auto [ethertype, mask] = maskedValue(in, internal::ethertypeNames(), "an ethertype", 0xFFFF);
      f.ethertypeIs(static_cast<U16>(ethertype));
      f.ethertypeMaskIs(static_cast<U16>(mask));
    } else if (seen.option(in, "outer-vlan")) {
      auto [vlan, mask] = vlanMatch(in);
      f.outerVlanIs(vlan);
      f.outerVlanMaskIs(mask);
    } else if (seen.option(in, "inner-vlan")) {
      auto [vlan, mask] = vlanMatch(in);
      f.innerVlanIs(vlan);
      f.innerVlanMaskIs(mask);
    } else if (seen.option(in, "mpls-label")) {
      f.mplsLabelIs(static_cast<U32>(number(in, upTo("an MPLS label", 0xFFFFF), 0xFFFFF)));
    } else if (seen.option(in, "mpls-inner-label")) {
      f.mplsInnerLabelIs(static_cast<U32>(number(in, upTo("an MPLS label", 0xFFFFF), 0xFFFFF)));
    } else if (in.accept("mpls")) {
      // mpls LABEL [mask M] [tc TC [mask M]], once per label.
      std::size_t labelColumn = in.column();
      MplsLabelFilter entry;
      entry.labelIs(static_cast<U32>(number(in, upTo("an MPLS label", 0xFFFFF), 0xFFFFF)));
      if (f.mpls().labels().contains(entry.label())) throw ParseError(labelColumn, "an MPLS label not given before");
      if (in.accept("mask"))
        entry.labelMaskIs(static_cast<U32>(number(in, maskUpTo("an MPLS label", 0xFFFFF), 0xFFFFF)));
      if (in.accept("tc")) {
        entry.tcIs(static_cast<U8>(number(in, upTo("a traffic class", 7), 7)));
        entry.tcMaskIs(in.accept("mask") ? static_cast<U8>(number(in, maskUpTo("a traffic class", 7), 7)) : U8{7});
      }
      MplsFilter mpls = f.mpls();
      mpls.labelIs(entry.label(), entry);
      f.mplsIs(mpls);
    } else if (in.accept("payload")) {
      payload.push_back(payloadElement(in));
    } else {
      in.fail("an option or the end of the line");
    }
  }
  if (!payload.empty()) f.payloadIs(payloadOf(payload, in));
  rule.filterIs(f);
  return rule;
}

std::optional<U32> sequenceNumber(Cursor& in) {
  in.offer(Choice::Kind::value, upTo("a sequence number", 0xFFFFFFFF));
  std::string_view word = in.peek();
  if (word.empty() || word.find_first_not_of("0123456789") != std::string_view::npos) return std::nullopt;
  std::optional<U64> sequence = readDigits(word, 10);
  if (!sequence || *sequence > 0xFFFFFFFF) in.fail(upTo("a sequence number", 0xFFFFFFFF));
  in.advance();
  return static_cast<U32>(*sequence);
}

Entry read(Cursor& in, AclType type, bool standard) {
  if (standard && type != AclType::ip) throw std::invalid_argument("only IPv4 lists are standard lists");
  Entry entry;
  entry.sequence = sequenceNumber(in);
  if (in.accept("remark")) {
    in.textFollows("the remark's text");
    entry.body = RemarkConfig(String(in.restAfterPrevious()));
    return entry;
  }
  RuleAction action = RuleAction::permit;
  if (in.accept("deny")) {
    action = RuleAction::deny;
  } else if (!in.accept("permit")) {
    in.fail("permit, deny or remark");
  }
  switch (type) {
    case AclType::ip:
      entry.body = ipRule<IpRuleConfig>(in, action, standard);
      break;
    case AclType::ipv6:
      entry.body = ipRule<Ip6RuleConfig>(in, action, false);
      break;
    default:  // every other family is read as MAC, as the library dispatches
      entry.body = macRule(in, action);
      break;
  }
  return entry;
}

}  // namespace

Entry parse(std::string_view line, AclType type, bool standard) {
  Cursor in(line);
  return read(in, type, standard);
}

Choices choicesAfter(std::string_view partial, AclType type, bool standard) {
  Choices choices;
  Cursor in(partial, &choices);
  try {
    read(in, type, standard);
  } catch (const ParseError&) {
    // Where the line ends the reader asked for more than it found, and noted what.
  }
  return choices;
}

}  // namespace Text
