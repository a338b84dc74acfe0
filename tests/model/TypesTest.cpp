// The model's value types: identities, addresses, interface and VRF names.
#include <gtest/gtest.h>

#include "aclkit/model/Types.h"
#include "aclkit/platform/fwk/Strep.h"
#include "aclkit/platform/fwk/Value.h"

namespace {

using namespace Acl;
using fwk::strep;

TEST(TypesTest, IdentitiesAreFreshTotallyOrderedAndReadBack) {
  UniqueId a;
  UniqueId b;
  EXPECT_NE(a, b);
  EXPECT_TRUE((a < b) != (b < a));
  UniqueId copy = a;
  EXPECT_EQ(copy.hash(), a.hash());
  copy.doInit();
  EXPECT_NE(copy, a);
  UniqueId fixed(1, 2);
  EXPECT_EQ(fixed.val(), (U64{1} << 32) | 2);
  EXPECT_EQ(UniqueId::fwkParse(strep(fixed)), fixed);
  EXPECT_THROW(UniqueId::fwkParse("x"), fwk::TypeConversionError);
}

TEST(TypesTest, AddressesReadAndPrintTheirUsualFormsAndRefuseTheRest) {
  EXPECT_EQ(Ip4Addr::fwkParse("192.0.2.3").value(), 0xC0000203u);
  EXPECT_EQ(strep(Ip4Addr(0xFFFFFF00)), "255.255.255.0");
  Ip6Addr v6 = Ip6Addr::fwkParse("2001:db8::1");
  EXPECT_EQ(std::pair(v6.high(), v6.low()), std::pair(U64{0x20010db800000000ULL}, U64{1}));
  EXPECT_EQ(strep(v6), "2001:db8::1");
  EXPECT_EQ(MacAddr::fwkParse("00:00:5e:00:53:01"), MacAddr::fwkParse("0000.5e00.5301"));
  EXPECT_EQ(strep(MacAddr(0x00005e005301ULL)), "00:00:5e:00:53:01");
  EXPECT_THROW(Ip4Addr::fwkParse("10.1.2"), fwk::TypeConversionError);
  EXPECT_THROW(Ip6Addr::fwkParse("2001:::1"), fwk::TypeConversionError);
  for (const char* bad : {"00:00:5e:00:53", "00:00.5e:00:53:01", "02:00:00:00:00:0g"}) {
    EXPECT_THROW(MacAddr::fwkParse(bad), fwk::TypeConversionError) << bad;
  }
}

TEST(TypesTest, VlanInterfacesAndVrfNamesHaveTheirLimits) {
  for (const char* name : {"Vlan1", "Vlan4094"}) EXPECT_TRUE(VlanIntfId::isVlanIntfId(IntfId(name))) << name;
  for (const char* name : {"Vlan0", "Vlan4095", "Vlan", "Ethernet1", "Vlan10.5"}) {
    EXPECT_FALSE(VlanIntfId::isVlanIntfId(IntfId(name))) << name;
  }
  const std::string longest(VrfName::maxLength, 'v');
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

}  // namespace
