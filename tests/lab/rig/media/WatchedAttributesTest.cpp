#include "lab/rig/media/WatchedAttributes.h"

#include <gtest/gtest.h>

#include "tests/lab/rig/contracts/ToldBreaches.h"

#include <mfapi.h>

using namespace lab::rig;
using Microsoft::WRL::ComPtr;

namespace {

using Strings = std::vector<std::string>;

constexpr GUID kKey{0x5C9A2E41, 0x77B0, 0x4D1F, {0x93, 0x6A, 0x0E, 0x28, 0xD4, 0xB5, 0x61, 0xF7}};

class WatchedAttributesTest : public testing::Test {
  protected:
    WatchedAttributesTest() {
        library_.Entered();
        EXPECT_EQ(MFCreateAttributes(&store_, 1), S_OK);
        *watched_.ReleaseAndGetAddressOf() = new WatchedAttributes(library_, store_);
    }

    ToldBreaches breaches_;
    ComLibrary library_{breaches_.Report()};
    ComPtr<IMFAttributes> store_;
    ComPtr<IMFAttributes> watched_;
};

TEST_F(WatchedAttributesTest, IsTheStore) {
    EXPECT_EQ(watched_->SetUINT32(kKey, 7), S_OK);
    UINT32 value = 0;
    EXPECT_EQ(store_->GetUINT32(kKey, &value), S_OK);
    EXPECT_EQ(value, 7u);
    UINT32 count = 0;
    EXPECT_EQ(watched_->GetCount(&count), S_OK);
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(breaches_.Take(), Strings{});
}

TEST_F(WatchedAttributesTest, CopiesToAStoreAndFromOne) {
    ComPtr<IMFAttributes> other;
    ASSERT_EQ(MFCreateAttributes(&other, 1), S_OK);
    other->SetUINT32(kKey, 7);
    EXPECT_EQ(other->CopyAllItems(watched_.Get()), S_OK);
    UINT32 value = 0;
    EXPECT_EQ(watched_->GetUINT32(kKey, &value), S_OK);
    EXPECT_EQ(value, 7u);
    other->DeleteAllItems();
    EXPECT_EQ(watched_->CopyAllItems(other.Get()), S_OK);
    WINBOOL same = FALSE;
    EXPECT_EQ(watched_->Compare(other.Get(), MF_ATTRIBUTES_MATCH_ALL_ITEMS, &same), S_OK);
    EXPECT_TRUE(same);
}

TEST_F(WatchedAttributesTest, IsOneObjectWithNoOtherInterface) {
    ComPtr<IUnknown> identity;
    ASSERT_EQ(watched_.As(&identity), S_OK);
    EXPECT_EQ(identity.Get(), watched_.Get());
    ComPtr<IMFActivate> activate;
    EXPECT_EQ(watched_.As(&activate), E_NOINTERFACE);
    EXPECT_EQ(watched_->QueryInterface(__uuidof(IUnknown), nullptr), E_POINTER);
}

TEST_F(WatchedAttributesTest, LetsGoOfTheStoreWithTheLastReference) {
    watched_.Reset();
    EXPECT_EQ(store_.Reset(), 0u);
}

TEST_F(WatchedAttributesTest, TellsCallsAfterTheEndOfCom) {
    library_.Left();
    UINT32 count = 0;
    watched_->GetCount(&count);
    watched_.Reset();
    const std::string contract = "nothing that COM gave is called after the last CoUninitialize: ";
    EXPECT_EQ(breaches_.Take(),
              (Strings{contract + "IMFAttributes::GetCount", contract + "IMFAttributes::Release"}));
}

}  // namespace
