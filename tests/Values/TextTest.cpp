#include <gtest/gtest.h>

#include <iomanip>
#include <sstream>

#include "Orb/Value.h"
#include "VxlanController/QorEvpnValues.h"
#include "support/Paths.h"

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

// Texts that are refused are in the file beside this: a type, a text between bars, and what is said of it.
TEST(Text, ErrorsNameTheFieldOrThePlace) {
  std::string const expected = TestSupport::sourceText("tests/Values/TextTest.transcript");
  std::string said;
  std::istringstream lines(expected);
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("  ")) continue;
    size_t const bar = line.find('|');
    said += line + "\n  ";
    try {
      Orb::ValueType::byName(line.substr(0, bar - 1)).parse(line.substr(bar + 1, line.size() - bar - 2));
    } catch (Orb::AttributeError const& error) {
      EXPECT_EQ(error.attribute() + ": " + error.message(), error.what());
      said += "of " + error.attribute() + ", " + error.message();
    } catch (Orb::ParseError const& error) {
      said += error.what();
    } catch (Orb::RangeError const& error) {
      said += std::string("out of range: ") + error.what();
    }
    said += '\n';
  }
  EXPECT_EQ(said, expected);
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
