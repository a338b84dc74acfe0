#include <gtest/gtest.h>

#include "aclkit/model/Types.h"
#include "aclkit/platform/fwk/Value.h"
#include "tests/support/Text.h"

namespace {

using namespace Acl;

using testtext::text;

TEST(TypesTest, UniqueIdsAreFreshAndTotallyOrdered) {
  UniqueId a;
  UniqueId b;
  EXPECT_NE(a, b);
  EXPECT_TRUE((a < b) != (b < a));
  UniqueId copy = a;
  EXPECT_EQ(copy, a);
  EXPECT_EQ(copy.hash(), a.hash());
  copy.doInit();
  EXPECT_NE(copy, a);
  UniqueId fixed(1, 2);
  EXPECT_EQ(fixed.val(), (U64{1} << 32) | 2);
  EXPECT_EQ(UniqueId::fwkParse(text(fixed)), fixed);
  EXPECT_THROW(UniqueId::fwkParse("x"), fwk::TypeConversionError);
}

TEST(TypesTest, AddressesReadAndPrintTheirUsualForms) {
  EXPECT_EQ(Ip4Addr::fwkParse("192.0.2.3").value(), 0xC0000203u);
  EXPECT_EQ(text(Ip4Addr(0xFFFFFF00)), "255.255.255.0");
  EXPECT_THROW(Ip4Addr::fwkParse("10.1.2"), fwk::TypeConversionError);
  Ip6Addr v6 = Ip6Addr::fwkParse("2001:db8::1");
  EXPECT_EQ(v6.high(), 0x20010db800000000ULL);
  EXPECT_EQ(v6.low(), 1u);
  EXPECT_EQ(text(v6), "2001:db8::1");
  EXPECT_THROW(Ip6Addr::fwkParse("2001:::1"), fwk::TypeConversionError);
  EXPECT_EQ(MacAddr::fwkParse("00:00:5e:00:53:01"), MacAddr::fwkParse("0000.5e00.5301"));
  EXPECT_EQ(text(MacAddr(0x00005e005301ULL)), "00:00:5e:00:53:01");
  EXPECT_THROW(MacAddr::fwkParse("00:1c:73:00:00"), fwk::TypeConversionError);
  EXPECT_THROW(MacAddr::fwkParse("00:1c.73:00:00:01"), fwk::TypeConversionError);
}

TEST(TypesTest, VlanInterfacesAreToldApart) {
  for (const char* name : {"Vlan10", "Vlan4094"}) EXPECT_TRUE(VlanIntfId::isVlanIntfId(IntfId(name))) << name;
  for (const char* name : {"Vlan4095", "Vlan", "Ethernet1", "Vlan10.5"}) {
    EXPECT_FALSE(VlanIntfId::isVlanIntfId(IntfId(name))) << name;
  }
}

TEST(TypesTest, VrfNamesHaveALengthLimit) {
  std::string longest(VrfName::maxLength, 'v');
  EXPECT_EQ(VrfName(String(longest)).value().size(), VrfName::maxLength);
  VrfName vrf(String("red"));
  try {
    vrf.valueIs(String(longest + "v"));
    FAIL();
  } catch (const fwk::RangeError& e) {
    EXPECT_STREQ(e.what(), "VrfName::value::bytes > VrfName::maxLength not allowed");
  }
  EXPECT_EQ(vrf.value(), "red") << "a refused name leaves the old one";
}

TEST(TypesTest, EnumerationsHaveTheirNumbers) {
  EXPECT_EQ(static_cast<U32>(AclType::ip), 0u);
  EXPECT_EQ(static_cast<U32>(AclType::ipv6), 1u);
  EXPECT_EQ(static_cast<U32>(AclType::mac), 2u);
  EXPECT_EQ(static_cast<U32>(AclDirection{}), 0u);
  EXPECT_EQ(AclDirection{}, AclDirection::in);
  EXPECT_EQ(text(AclType::ipv6), "ipv6");
  EXPECT_EQ(fwk::enumFromName<AclDirection>("out"), AclDirection::out);
  EXPECT_THROW(fwk::enumFromValue<AclType>(3), fwk::EnumError);
}

}  // namespace
