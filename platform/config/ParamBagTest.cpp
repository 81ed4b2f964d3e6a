#include "platform/config/ParamBag.h"

#include <gtest/gtest.h>

namespace Config {

namespace {

/// A bag whose names are compared without case, as the header of a message needs it.
class CaselessBag : public ParamBag {
public:
    CaselessBag() : ParamBag(KeyCase::Ignored) {}
};

} // namespace

TEST(ParamBagTest, EmptyBagGivesTheFallback) {
    const ParamBag bag;
    EXPECT_FALSE(bag.hasParam("a"));
    EXPECT_STREQ(bag.getParam("a", "none"), "none");
    EXPECT_EQ(bag.getParam("a", nullptr), nullptr);
}

TEST(ParamBagTest, ValueIsFoundUnderItsKey) {
    ParamBag bag;
    bag.setParam("a", "1");
    bag.setParam("ab", "2");
    EXPECT_TRUE(bag.hasParam("a"));
    EXPECT_STREQ(bag.getParam("a", "none"), "1");
    EXPECT_STREQ(bag.getParam("ab", nullptr), "2");
    EXPECT_FALSE(bag.hasParam("b"));
    EXPECT_FALSE(bag.hasParam("abc"));
    EXPECT_FALSE(bag.hasParam(""));
}

TEST(ParamBagTest, EmptyValueIsThere) {
    ParamBag bag;
    bag.setParam("a", "");
    EXPECT_TRUE(bag.hasParam("a"));
    EXPECT_STREQ(bag.getParam("a", "none"), "");
}

TEST(ParamBagTest, EmptyKeyIsAKey) {
    ParamBag bag;
    bag.setParam("", "x");
    EXPECT_STREQ(bag.getParam("", nullptr), "x");
    EXPECT_FALSE(bag.hasParam("x"));
}

TEST(ParamBagTest, SetReplacesInPlace) {
    ParamBag bag;
    bag.setParam("a", "1");
    bag.setParam("b", "2");
    bag.setParam("a", "3");
    const std::vector<ParamBag::Entry> expected = {{"a", "3"}, {"b", "2"}};
    EXPECT_EQ(bag.entries(), expected);
}

TEST(ParamBagTest, SetTakesItsOwnValueBack) {
    ParamBag bag;
    bag.setParam("a", "a value that is too long to be stored inside the string itself");
    bag.setParam("a", bag.getParam("a", nullptr));
    EXPECT_STREQ(bag.getParam("a", nullptr),
                 "a value that is too long to be stored inside the string itself");
}

TEST(ParamBagTest, FirstOfAppendedValuesCounts) {
    ParamBag bag;
    bag.appendParam("a", "1");
    bag.appendParam("b", "2");
    bag.appendParam("a", "3");
    EXPECT_STREQ(bag.getParam("a", nullptr), "1");
    EXPECT_EQ(bag.entries().size(), 3U);
    bag.setParam("a", "4");
    EXPECT_STREQ(bag.getParam("a", nullptr), "4");
}

TEST(ParamBagTest, KeysOfAPlainBagHaveCase) {
    ParamBag bag;
    bag.setParam("Redirect", "1");
    EXPECT_FALSE(bag.hasParam("redirect"));
    bag.setParam("redirect", "2");
    EXPECT_STREQ(bag.getParam("Redirect", nullptr), "1");
    EXPECT_STREQ(bag.getParam("redirect", nullptr), "2");
}

TEST(ParamBagTest, KeysOfACaselessBagHaveNone) {
    CaselessBag bag;
    bag.setParam("Content-Type", "a");
    EXPECT_STREQ(bag.getParam("content-TYPE", nullptr), "a");
    bag.setParam("CONTENT-type", "b");
    const std::vector<ParamBag::Entry> expected = {{"Content-Type", "b"}};
    EXPECT_EQ(bag.entries(), expected);
    EXPECT_FALSE(bag.hasParam("Content_Type"));
}

TEST(ParamBagTest, OnlyLettersHaveCase) {
    CaselessBag bag;
    bag.setParam("[\xc4", "1");
    EXPECT_FALSE(bag.hasParam("{\xc4"));
    EXPECT_FALSE(bag.hasParam("[\xe4"));
    EXPECT_TRUE(bag.hasParam("[\xc4"));
}

TEST(ParamBagTest, CopyIsIndependent) {
    CaselessBag bag;
    bag.setParam("A", "1");
    CaselessBag copy = bag;
    copy.setParam("a", "2");
    EXPECT_STREQ(bag.getParam("A", nullptr), "1");
    EXPECT_STREQ(copy.getParam("A", nullptr), "2");
}

TEST(ParamBagTest, ClearForgetsEverything) {
    ParamBag bag;
    bag.setParam("a", "1");
    bag.clear();
    EXPECT_FALSE(bag.hasParam("a"));
    EXPECT_TRUE(bag.entries().empty());
}

} // namespace Config
