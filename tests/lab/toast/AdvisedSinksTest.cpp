#include "lab/toast/AdvisedSinks.h"

#include <gtest/gtest.h>

#include "tests/lab/toast/RecordingSink.h"

namespace lab::toast {
namespace {

// Connection points are only told apart by their addresses here.
const auto* const kFirstPoint = reinterpret_cast<const IConnectionPoint*>(0x1000);
const auto* const kSecondPoint = reinterpret_cast<const IConnectionPoint*>(0x2000);

TEST(AdvisedSinks, HoldsASinkUntilItIsRemoved) {
    RecordingSink sink;
    AdvisedSinks sinks;
    const DWORD cookie = sinks.Add(kFirstPoint, &sink);
    EXPECT_NE(cookie, 0u);
    EXPECT_EQ(sink.References(), 1u);
    EXPECT_TRUE(sinks.Remove(kFirstPoint, cookie));
    EXPECT_EQ(sink.References(), 0u);
    EXPECT_FALSE(sinks.Remove(kFirstPoint, cookie));
}

TEST(AdvisedSinks, GivesNoCookieTwice) {
    RecordingSink sink;
    AdvisedSinks sinks;
    const DWORD first = sinks.Add(kFirstPoint, &sink);
    ASSERT_TRUE(sinks.Remove(kFirstPoint, first));
    EXPECT_NE(sinks.Add(kFirstPoint, &sink), first);
}

TEST(AdvisedSinks, RefusesTheCookieOfAnotherConnectionPoint) {
    RecordingSink sink;
    AdvisedSinks sinks;
    const DWORD cookie = sinks.Add(kFirstPoint, &sink);
    EXPECT_FALSE(sinks.Remove(kSecondPoint, cookie));
    EXPECT_EQ(sinks.All().size(), 1u);
}

TEST(AdvisedSinks, ForgetsOnlyTheConnectionPointThatGoesAway) {
    RecordingSink first;
    RecordingSink second;
    AdvisedSinks sinks;
    static_cast<void>(sinks.Add(kFirstPoint, &first));
    static_cast<void>(sinks.Add(kSecondPoint, &second));
    static_cast<void>(sinks.Add(kFirstPoint, &first));
    sinks.RemoveAllOf(kFirstPoint);
    EXPECT_EQ(first.References(), 0u);
    ASSERT_EQ(sinks.All().size(), 1u);
    EXPECT_EQ(sinks.All().front().Get(), &second);
}

TEST(AdvisedSinks, ListsThemInTheOrderOfTheirAdvises) {
    RecordingSink first;
    RecordingSink second;
    AdvisedSinks sinks;
    static_cast<void>(sinks.Add(kSecondPoint, &first));
    static_cast<void>(sinks.Add(kFirstPoint, &second));
    const auto all = sinks.All();
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(all[0].Get(), &first);
    EXPECT_EQ(all[1].Get(), &second);
}

TEST(AdvisedSinks, ReleasesEverySinkAtTheEnd) {
    RecordingSink sink;
    AdvisedSinks sinks;
    static_cast<void>(sinks.Add(kFirstPoint, &sink));
    static_cast<void>(sinks.Add(kSecondPoint, &sink));
    sinks.RemoveAll();
    EXPECT_EQ(sink.References(), 0u);
    EXPECT_TRUE(sinks.All().empty());
}

}  // namespace
}  // namespace lab::toast
