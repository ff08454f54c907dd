#include "host/campaign/BrokenRule.h"
#include "host/campaign/CameraBus.h"
#include "host/campaign/Kind.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <span>

namespace campaign {
namespace {

constexpr const wchar_t* kLink =
    LR"(\\?\usb#vid_2f1a&pid_7e01#kv4000001#{a5dcbf10-6530-11d2-901f-00c04fb951ed})";

class CameraBusTest : public testing::Test, public ICrossingListener {
  protected:
    CameraBusTest() {
        camera_.Plug(0);
        static_cast<void>(bus_.WriteControl(0, SwitchFrame()));
        time_.Advance(1000);
    }
    void OnCrossing(const Crossing&) override {}

    static std::span<const std::uint8_t> SwitchFrame() {
        static const auto frame = [] {
            std::array<std::uint8_t, lab::VirtualCamera::kFrameSize> bytes{20, 0, 0xAB, 0xCD, 0x1E};
            bytes[8] = 1;
            return bytes;
        }();
        return frame;
    }
    static HANDLE Open(DWORD access = GENERIC_READ | GENERIC_WRITE, DWORD attributes = FILE_FLAG_OVERLAPPED) {
        return CreateFileW(kLink, access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                           attributes, nullptr);
    }
    static WINUSB_INTERFACE_HANDLE Interface(HANDLE file) {
        WINUSB_INTERFACE_HANDLE handle = nullptr;
        EXPECT_TRUE(WinUsb_Initialize(file, &handle));
        return handle;
    }

    VirtualTime time_;
    lab::VirtualCamera camera_{SettingsOf(Kinds().front())};
    CameraBus bus_{time_, *this, {&camera_}};
};

TEST_F(CameraBusTest, CountsWhatIsOpen) {
    const HANDLE file = Open();
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    const WINUSB_INTERFACE_HANDLE handle = Interface(file);
    EXPECT_EQ(bus_.OpenHandles(), 2U);
    EXPECT_TRUE(WinUsb_Free(handle));
    EXPECT_TRUE(CloseHandle(file));
    EXPECT_EQ(bus_.OpenHandles(), 0U);
    EXPECT_TRUE(bus_.HandlesWereOpen());
}

TEST_F(CameraBusTest, NotesAnInterfaceThatIsFreedTwice) {
    const WINUSB_INTERFACE_HANDLE handle = Interface(Open());
    EXPECT_TRUE(WinUsb_Free(handle));
    EXPECT_TRUE(bus_.HandlesWereOpen());
    EXPECT_FALSE(WinUsb_Free(handle));
    EXPECT_FALSE(bus_.HandlesWereOpen());
}

TEST_F(CameraBusTest, NotesAFileThatIsClosedTwice) {
    const HANDLE file = Open();
    EXPECT_TRUE(CloseHandle(file));
    EXPECT_TRUE(bus_.HandlesWereOpen());
    EXPECT_FALSE(CloseHandle(file));
    EXPECT_FALSE(bus_.HandlesWereOpen());
}

TEST_F(CameraBusTest, NotesAnInterfaceOfAFileThatIsClosed) {
    const HANDLE file = Open();
    EXPECT_TRUE(CloseHandle(file));
    WINUSB_INTERFACE_HANDLE handle = nullptr;
    EXPECT_FALSE(WinUsb_Initialize(file, &handle));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
    EXPECT_FALSE(bus_.HandlesWereOpen());
}

TEST_F(CameraBusTest, NotesATransferOnAnInterfaceThatIsFreed) {
    const WINUSB_INTERFACE_HANDLE handle = Interface(Open());
    EXPECT_TRUE(WinUsb_Free(handle));
    UCHAR state = 0;
    ULONG transferred = 0;
    EXPECT_FALSE(WinUsb_ControlTransfer(handle, {0xA1, 5, 0, 0, 1}, &state, 1, &transferred, nullptr));
    EXPECT_FALSE(bus_.HandlesWereOpen());
}

TEST_F(CameraBusTest, WantsADeviceOpenedAsWinUsbDoes) {
    EXPECT_THROW(Open(GENERIC_READ), BrokenRule);
    EXPECT_THROW(Open(GENERIC_READ | GENERIC_WRITE, FILE_ATTRIBUTE_NORMAL), BrokenRule);
}

}  // namespace
}  // namespace campaign
