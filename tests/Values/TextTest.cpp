#include <gtest/gtest.h>

#include <iomanip>
#include <sstream>

#include "Orb/Value.h"
#include "VxlanController/QorEvpnValues.h"

namespace {

using namespace QorEvpn;

// The numbers are such that no further digit may follow: 0, or the greatest value.
constexpr char hostText[] =
    "Value('QorEvpn::Host', ** {'key': Value('QorEvpn::MacVniPair', ** {'macAddr': 02:00:00:00:00:fe, 'vni': "
    "5000}), "
    "'vtepAddr': 10.99.0.11, 'seqNo': 4294967295, 'preference': 255})";

// What else is read, and what must not be, the fuzz target goes through.
TEST(Text, EachTypeReadsWhatItWrites) {
  struct {
    char const *type, *text;
  } const examples[] = {
      {"bool", "true"},
      {"uint8_t", "255"},
      {"uint64_t", "18446744073709551615"},
      {"Wirix::EthAddr", "00:00:00:cd:ef:ff"},
      {"Seqno32", "4294967295"},
      {"Vxlan::VniExt", "16777215"},
      {"Bridging::BridgeId", "4294967295"},
      {"QorEvpn::Host", hostText},
      {"QorEvpn::FloodEntry", "Value('QorEvpn::VniVtepPair', ** {'vni': 0, 'vtepAddr': 0.0.0.0})"},
  };
  for (auto const& [type, text] : examples) EXPECT_EQ(Orb::ValueType::byName(type).parse(text).text(), text);
}

TEST(Text, ErrorsNameTheFieldOrThePlace) {
  std::string const vniRange = "Vni::value < Vni::min or > Vni::max not allowed";
  auto const changed = [](std::string_view from, std::string_view to) {
    std::string text = hostText;
    return text.replace(text.find(from), from.size(), to);
  };
  struct Case {
    char const* type;
    std::string text, attribute, what;
  } const cases[] = {
      {"QorEvpn::Host", changed("5000", "16777216"), "key", "key: vni: " + vniRange},
      {"QorEvpn::FloodEntry", "Value('QorEvpn::VniVtepPair', ** {'vni': 99999999999999999999, ", "key",
       "key: vni: " + vniRange},
      {"QorEvpn::Host", changed(".11", ".256"), "vtepAddr", "vtepAddr: IpAddr octet > 255 not allowed"},
      {"QorEvpn::Host", changed("4294967295", "4294967296"), "seqNo",
       "seqNo: Seqno32::value > Seqno32::max not allowed"},
      {"QorEvpn::Host", changed("255", "256"), "preference", "preference: value > 255 not allowed"},
      {"Vxlan::Vni", "16777216", "", vniRange},
      {"uint64_t", "18446744073709551616", "", "value > 18446744073709551615 not allowed"},
      {"Bridging::BridgeId", "4294967296", "", "BridgeId::value > BridgeId::max not allowed"},
      {"QorEvpn::Host", changed(", 'vtepAddr'", ",'vtepAddr'"), "",
       "expected \", 'vtepAddr': \" at position 110, found \",'vtepAddr': 10.99.0.11,...\""},
      {"QorEvpn::Host", changed("10.99", "010.99"), "",
       "expected a number without leading zeros at position 124, found \"010.99.0.11, 'seqNo': 42...\""},
      {"Wirix::EthAddr", "02:00:00:00:00:0A", "",
       "expected a lower-case hexadecimal digit at position 16, found \"A\""},
      {"Vxlan::Vni", "", "", "expected a digit at position 0, found the end"},
      {"Vxlan::Vni", "5000 ", "", "expected the end at position 4, found \" \""},
  };
  for (Case const& each : cases) {
    std::string attribute;
    try {
      Orb::ValueType::byName(each.type).parse(each.text);
      ADD_FAILURE() << each.text;
    } catch (Orb::Error const& error) {
      EXPECT_STREQ(error.what(), each.what.c_str());
      auto const* ofAttribute = dynamic_cast<Orb::AttributeError const*>(&error);
      EXPECT_EQ(ofAttribute == nullptr ? "" : ofAttribute->attribute(), each.attribute);
      if (ofAttribute) {
        EXPECT_EQ(each.attribute + ": " + ofAttribute->message(), each.what);
      }
      EXPECT_EQ(dynamic_cast<Orb::ParseError const*>(&error) == nullptr,
                each.what.find(" not allowed") != std::string::npos);
    }
  }
}

TEST(Text, ExchangeValuesAreReadAtAnIteratorOrWhole) {
  Host host(MacVniPair(Wirix::EthAddr("02:00:00:00:00:fe"), Vxlan::Vni(5000)));
  host.vtepAddrIs(Wirix::IpAddr("10.99.0.11"));
  host.seqNoIs(Seqno32(Seqno32::max));
  host.preferenceIs(255);
  EXPECT_EQ(valueToStrep(host), hostText);
  EXPECT_EQ(strepToValue<Host>(hostText), host);
  std::ostringstream stream;
  stream << host << host.key().macAddr() << host.vtepAddr() << host.seqNo() << host.key().vni();
  EXPECT_EQ(stream.str(), std::string(hostText) + "02:00:00:00:00:fe10.99.0.1142949672955000");
  std::ostringstream padded;
  padded << std::setfill('*') << std::setw(200) << host << std::setw(30) << host.key().macAddr()
         << std::setw(2) << 7;
  EXPECT_EQ(padded.str(), std::string(hostText) + "02:00:00:00:00:fe*7");

  FloodEntry const entry(VniVtepPair(Vxlan::Vni(7), Wirix::IpAddr(0x0a630001)));
  EXPECT_EQ(valueToStrep(entry), valueToStrep(entry.key()));
  std::string const two = valueToStrep(entry) + hostText + "tail";
  auto current = two.begin();
  EXPECT_EQ(FloodEntry(current, two.end()), entry);
  EXPECT_EQ(Host(current, two.end()), host);
  EXPECT_EQ(std::string(current, two.end()), "tail");
  std::string changeable = valueToStrep(host.key());
  auto place = changeable.begin();
  EXPECT_EQ(MacVniPair(place, changeable.end()), host.key());
  EXPECT_EQ(place, changeable.end());
  EXPECT_THROW(VniVtepPair(current, two.end()), Orb::ParseError);
  EXPECT_EQ(std::string(current, two.end()), "tail") << "an error leaves the position";

  Host target = host;
  EXPECT_THROW(strepToValue(std::string(hostText) + " ", target), Orb::ParseError);
  EXPECT_EQ(target, host) << "an error leaves the value";
}

}  // namespace
