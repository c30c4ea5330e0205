#include "Orb/Value.h"

#include <gmock/gmock.h>

#include "Orb/Assert.h"

namespace {

using Orb::Value, Orb::ValueType;
using testing::ThrowsMessage;

// Has equality, one attribute of each kind, and none of order, hash, text and default.
class Plain {
 public:
  explicit Plain(uint32_t level) : level_(level) {}
  uint32_t level() const { return level_; }
  void levelIs(uint32_t level) { level_ = level; }
  bool isHigh() const { return level_ > 9; }
  friend bool operator==(Plain const&, Plain const&) = default;

 private:
  uint32_t level_;
};

}  // namespace

template <>
struct Orb::ValueTraits<Plain> {
  static std::string name() { return "Plain"; }
  static std::vector<ValueAttribute> attributes() {
    return {readWrite<&Plain::level, &Plain::levelIs>("level"), readOnly<&Plain::isHigh>("isHigh")};
  }
};

namespace {

TEST(Value, AttributesByIdentifierAndByName) {
  Value value = Plain(3);
  EXPECT_EQ(value.attribute("level"), Value(uint32_t{3}));
  value.attributeIs("level", Value(uint32_t{10}));
  EXPECT_TRUE(value.attribute(Orb::firstOwnAttribute + 1).as<bool>());
  value.attributeIs(Orb::firstOwnAttribute, Value(uint32_t{4}));
  EXPECT_EQ(value.as<Plain>().level(), 4U);
  Value copy = value;
  copy.attributeIs("level", Value(uint32_t{5}));
  EXPECT_EQ(value.as<Plain>().level(), 4U) << "of a copy's own";

  EXPECT_THAT([&] { value.attributeIs("level", Value(true)); },
              ThrowsMessage<Orb::WrongTypeError>("a value of type uint32_t is needed, not of type bool"));
  EXPECT_THAT([&] { value.attributeIs("isHigh", Value(true)); },
              ThrowsMessage<Orb::AttributeAccessError>("isHigh: Plain does not let it be written"));
  EXPECT_THAT([&] { value.attribute("depth"); },
              ThrowsMessage<Orb::UnknownAttributeError>("depth: Plain has no such attribute"));
  EXPECT_THAT([&] { value.attribute(Orb::firstOwnAttribute + 2); },
              ThrowsMessage<Orb::UnknownAttributeError>("#258: Plain has no such attribute"));
  EXPECT_EQ(value.as<Plain>().level(), 4U);
}

TEST(Value, WhatATypeLacksIsAnError) {
  Value const value = Plain(1);
  EXPECT_THAT([&] { value.hash(); },
              ThrowsMessage<Orb::UnhashableTypeError>("values of type Plain have no hash"));
  EXPECT_THROW(value.text(), Orb::UnsupportedOperationError);
  EXPECT_THROW(value.type().parse("1"), Orb::UnsupportedOperationError);
  EXPECT_THROW(value.type().less(value.object(), value.object()), Orb::UnsupportedOperationError);
  EXPECT_THROW(ValueType::byName("plain"), Orb::UnknownTypeError);
  EXPECT_THROW(Value().type(), Orb::WrongTypeError);
  EXPECT_THROW(Value(true).as<uint32_t>(), Orb::WrongTypeError);
}

TEST(AssertDeathTest, PrintsWhatFailed) {
  int evaluated = 0;
  auto const initialized = [&evaluated] { return evaluated++ == 0; };
  ORB_ASSERT(initialized());
  EXPECT_EQ(evaluated, 1);
  EXPECT_DEATH(ORB_ASSERT(initialized()),
               "^assertion failed: initialized\\(\\), function .*TestBody.*Orb/ValueTest.cpp:[0-9]+\n$");
}

}  // namespace
