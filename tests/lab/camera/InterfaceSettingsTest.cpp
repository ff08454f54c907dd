#include "lab/camera/InterfaceSettings.h"

#include <gtest/gtest.h>

#include <span>
#include <vector>

namespace lab::test {
namespace {

using Bytes = std::vector<std::uint8_t>;

// Interface 0 with one setting and endpoint 0x82; interface 1 with settings 0 and 1, the latter with endpoint
// 0x81.
const Bytes kConfiguration{
    9, 2, 50,   0, 2,    1,    0, 0x80, 50,  //
    9, 4, 0,    0, 1,    0x0E, 1, 0,    0,   //
    7, 5, 0x82, 3, 16,   0,    8,            //
    9, 4, 1,    0, 0,    0x0E, 2, 0,    0,   //
    9, 4, 1,    1, 1,    0x0E, 2, 5,    0,   //
    7, 5, 0x81, 5, 0x00, 0x04, 1,            //
};

TEST(InterfaceSettings, BeginWithSettingZero) {
    const InterfaceSettings settings(kConfiguration);
    EXPECT_EQ(settings.Alternate(0), 0);
    EXPECT_EQ(settings.Alternate(1), 0);
    EXPECT_EQ(settings.Alternate(2), std::nullopt);
    ASSERT_EQ(settings.Chosen().size(), 2U);
    EXPECT_EQ(settings.Chosen()[1].endpoints.size(), 0U);
}

TEST(InterfaceSettings, TellWhatIsChosen) {
    InterfaceSettings settings(kConfiguration);
    ASSERT_TRUE(settings.Choose(1, 1));
    EXPECT_EQ(settings.Alternate(1), 1);
    const auto chosen = settings.Chosen();
    ASSERT_EQ(chosen.size(), 2U);
    EXPECT_EQ(chosen[1].alternate, 1);
    EXPECT_EQ(chosen[1].interfaceClass, 0x0E);
    EXPECT_EQ(chosen[1].subclass, 2);
    EXPECT_EQ(chosen[1].protocol, 5);
    ASSERT_EQ(chosen[1].endpoints.size(), 1U);
    EXPECT_EQ(chosen[1].endpoints[0].address, 0x81);
    EXPECT_EQ(chosen[1].endpoints[0].attributes, 5);
    EXPECT_EQ(chosen[1].endpoints[0].packetSize, 1024);
    EXPECT_EQ(chosen[1].endpoints[0].interval, 1);
}

TEST(InterfaceSettings, RefuseWhatDoesNotExist) {
    InterfaceSettings settings(kConfiguration);
    EXPECT_FALSE(settings.Choose(0, 1));
    EXPECT_FALSE(settings.Choose(1, 2));
    EXPECT_FALSE(settings.Choose(2, 0));
    EXPECT_EQ(settings.Alternate(1), 0);
}

TEST(InterfaceSettings, HaveTheEndpointsOfTheChosenSettings) {
    InterfaceSettings settings(kConfiguration);
    EXPECT_EQ(settings.IsHalted(0x82), false);
    EXPECT_EQ(settings.IsHalted(0x81), std::nullopt);
    EXPECT_FALSE(settings.SetHalt(0x81, true));
    ASSERT_TRUE(settings.Choose(1, 1));
    EXPECT_EQ(settings.IsHalted(0x81), false);
}

TEST(InterfaceSettings, AHaltLastsUntilItIsClearedOrTheSettingIsChosen) {
    InterfaceSettings settings(kConfiguration);
    ASSERT_TRUE(settings.Choose(1, 1));
    EXPECT_TRUE(settings.SetHalt(0x81, true));
    EXPECT_TRUE(settings.SetHalt(0x82, true));
    EXPECT_TRUE(settings.SetHalt(0x82, false));
    EXPECT_EQ(settings.IsHalted(0x81), true);
    EXPECT_EQ(settings.IsHalted(0x82), false);
    ASSERT_TRUE(settings.Choose(1, 1));
    EXPECT_EQ(settings.IsHalted(0x81), false);
}

TEST(InterfaceSettings, SurviveEveryTruncation) {
    for (std::size_t length = 0; length <= kConfiguration.size(); ++length) {
        const InterfaceSettings settings{std::span(kConfiguration).first(length)};
        const std::size_t expected = length < 18 ? 0 : length < 34 ? 1 : 2;
        EXPECT_EQ(settings.Chosen().size(), expected) << length;
    }
}

TEST(InterfaceSettings, AnInterfaceWithoutSettingZeroHasNothingChosenAtFirst) {
    InterfaceSettings settings(Bytes{9, 4, 3, 1, 0, 0xFE, 1, 2, 0});
    EXPECT_EQ(settings.Alternate(3), 0);
    EXPECT_TRUE(settings.Chosen().empty());
    EXPECT_FALSE(settings.Choose(3, 0));
    EXPECT_TRUE(settings.Choose(3, 1));
    EXPECT_EQ(settings.Chosen().size(), 1U);
}

}  // namespace
}  // namespace lab::test
