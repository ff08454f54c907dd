#include "usb_core/IUsbControlEndpoint.h"

#include "tests/support/VirtualSlot.h"

#include <gtest/gtest.h>

#include <memory>
#include <type_traits>

namespace usb_core {
namespace {

using test_support::VirtualSlot;

class CountedEndpoint final : public IUsbControlEndpoint {
  public:
    explicit CountedEndpoint(int& destroyed) : destroyed_(destroyed) {}
    ~CountedEndpoint() override { ++destroyed_; }

    HRESULT Transfer(WINUSB_SETUP_PACKET&, PUCHAR, std::size_t) override { return E_NOTIMPL; }
    [[nodiscard]] bool IsConnected() const override { return false; }
    void Disconnect() override {}
    [[nodiscard]] std::uint16_t GetMaxTransferSize() const override { return 0; }

  private:
    int& destroyed_;
};

TEST(IUsbControlEndpoint, HasItsOperationsInOrderBehindTheDestructor) {
    EXPECT_EQ(VirtualSlot(&IUsbControlEndpoint::Transfer), 2U);
    EXPECT_EQ(VirtualSlot(&IUsbControlEndpoint::IsConnected), 3U);
    EXPECT_EQ(VirtualSlot(&IUsbControlEndpoint::Disconnect), 4U);
    EXPECT_EQ(VirtualSlot(&IUsbControlEndpoint::GetMaxTransferSize), 5U);
}

TEST(IUsbControlEndpoint, DestroysTheImplementationThroughTheInterface) {
    int destroyed = 0;
    { const std::unique_ptr<IUsbControlEndpoint> endpoint = std::make_unique<CountedEndpoint>(destroyed); }
    EXPECT_EQ(destroyed, 1);
}

TEST(IUsbControlEndpoint, IsAnInterfaceThatNobodyCopies) {
    EXPECT_TRUE(std::is_abstract_v<IUsbControlEndpoint>);
    EXPECT_FALSE(std::is_copy_constructible_v<CountedEndpoint>);
    EXPECT_FALSE(std::is_copy_assignable_v<CountedEndpoint>);
}

TEST(IUsbControlEndpoint, TakesTheCallersPacketAndAMachineWordOfLength) {
    EXPECT_TRUE(
        (std::is_same_v<decltype(&IUsbControlEndpoint::Transfer),
                        HRESULT (IUsbControlEndpoint::*)(WINUSB_SETUP_PACKET&, PUCHAR, std::size_t)>));
    EXPECT_EQ(sizeof(WINUSB_SETUP_PACKET), 8U);
    EXPECT_TRUE((std::is_same_v<decltype(&IUsbControlEndpoint::GetMaxTransferSize),
                                std::uint16_t (IUsbControlEndpoint::*)() const>));
}

}  // namespace
}  // namespace usb_core
