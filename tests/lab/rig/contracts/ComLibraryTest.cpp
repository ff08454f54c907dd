#include "lab/rig/contracts/ComLibrary.h"

#include <gtest/gtest.h>

#include <thread>

#include "tests/lab/rig/contracts/ToldBreaches.h"

using namespace lab::rig;

namespace {

using Strings = std::vector<std::string>;

class ComLibraryTest : public testing::Test {
  protected:
    ToldBreaches breaches_;
    ComLibrary library_{breaches_.Report()};
};

TEST_F(ComLibraryTest, IsThereBeforeAnybodyHasEntered) {
    EXPECT_TRUE(library_.IsThereFor("IMFActivate", "Release"));
}

TEST_F(ComLibraryTest, IsGoneWithTheLastToLeave) {
    library_.Entered();
    library_.Entered();
    library_.Left();
    EXPECT_TRUE(library_.IsThereFor("IMFActivate", "Release"));
    library_.Left();
    EXPECT_FALSE(library_.IsThere());
    EXPECT_EQ(breaches_.Take(), Strings{});
    EXPECT_FALSE(library_.IsThereFor("IMFActivate", "Release"));
    EXPECT_EQ(breaches_.Take(),
              Strings{"nothing that COM gave is called after the last CoUninitialize: IMFActivate::Release"});
}

TEST_F(ComLibraryTest, ComesBackWithTheNextToEnter) {
    library_.Entered();
    library_.Left();
    library_.Entered();
    EXPECT_TRUE(library_.IsThere());
}

TEST_F(ComLibraryTest, StaysForAsLongAsItsApartmentIsKept) {
    library_.Entered();
    library_.Kept();
    library_.Left();
    EXPECT_TRUE(library_.IsThere());
    library_.GivenBack();
    EXPECT_FALSE(library_.IsThere());
}

TEST_F(ComLibraryTest, IgnoresALeaveOnAThreadThatHasNotEntered) {
    library_.Entered();
    std::thread([this] { library_.Left(); }).join();
    EXPECT_TRUE(library_.IsThere());
    std::thread([this] { library_.Entered(); }).join();
    library_.Left();
    EXPECT_TRUE(library_.IsThere());
}

}  // namespace
