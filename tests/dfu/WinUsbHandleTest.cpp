#include "dfu/WinUsbHandle.h"

#include "tests/support/FakeUsbBus.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace dfu {
namespace {

using test_support::FakeUsbBus;
using Calls = std::vector<std::string>;

const std::wstring kLink = L"\\\\?\\usb#vid_2f1a&pid_7e01#1#{a5dcbf10-6530-11d2-901f-00c04fb951ed}";

WINUSB_INTERFACE_HANDLE OpenMainHandle(FakeUsbBus& bus) {
    bus.Add(kLink);
    const HANDLE file =
        CreateFileW(kLink.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr);
    WINUSB_INTERFACE_HANDLE handle = nullptr;
    EXPECT_TRUE(WinUsb_Initialize(file, &handle));
    bus.ForgetCalls();
    return handle;
}

TEST(WinUsbHandle, IsFreedOnce) {
    FakeUsbBus bus;
    {
        UniqueWinUsbHandle handle(OpenMainHandle(bus));
        handle.Reset();
        EXPECT_EQ(handle.Get(), nullptr);
    }
    EXPECT_EQ(bus.Calls(), (Calls{"WinUsb_Free(main)"}));
}

TEST(WinUsbHandle, IsFreedWhenItsOwnerGoes) {
    FakeUsbBus bus;
    { const UniqueWinUsbHandle handle(OpenMainHandle(bus)); }
    EXPECT_EQ(bus.Calls(), (Calls{"WinUsb_Free(main)"}));
}

TEST(WinUsbHandle, IsNotFreedWhenNull) {
    FakeUsbBus bus;
    { const UniqueWinUsbHandle handle; }
    EXPECT_EQ(bus.Calls(), Calls{});
}

TEST(WinUsbHandle, IsNotFreedWhenItIsTheInvalidHandleValue) {
    FakeUsbBus bus;
    { const UniqueWinUsbHandle handle(INVALID_HANDLE_VALUE); }
    EXPECT_EQ(bus.Calls(), Calls{});
}

}  // namespace
}  // namespace dfu
