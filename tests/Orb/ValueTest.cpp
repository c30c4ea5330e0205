#include "Orb/Value.h"

#include <gmock/gmock.h>

#include "Orb/Assert.h"

namespace {

using Orb::Value, Orb::ValueType;
using testing::ThrowsMessage;

// Has equality, one attribute of each kind, and none of order, hash, text and default. Counts its objects.
class Plain {
 public:
  explicit Plain(uint32_t level) : level_(level) { ++alive; }
  Plain(Plain const& other) : level_(other.level_) { ++alive; }
  Plain& operator=(Plain const&) = default;
  ~Plain() { --alive; }
  uint32_t level() const { return level_; }
  void levelIs(uint32_t level) { level_ = level; }
  bool isHigh() const { return level_ > 9; }
  friend bool operator==(Plain const&, Plain const&) = default;

  static inline int alive = 0;

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

TEST(Value, OwnsACopy) {
  {
    Value first = Plain(1);
    Value second = first;
    second.attributeIs("level", Value(uint32_t{2}));
    EXPECT_EQ(first.as<Plain>().level(), 1U);
    EXPECT_FALSE(first == second);
    first = second;
    EXPECT_EQ(first, second);
    Value const third = std::move(first);
    EXPECT_TRUE(first.empty());  // NOLINT(bugprone-use-after-move): a Value that was moved from is empty
    EXPECT_EQ(third, second);
    EXPECT_FALSE(third == Value() || third == Value(uint32_t{2}));
    EXPECT_EQ(Value(), Value());
    EXPECT_EQ(Plain::alive, 2);
  }
  EXPECT_EQ(Plain::alive, 0);
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
