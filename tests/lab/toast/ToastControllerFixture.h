#pragma once

#include <winsock2.h>

#include <ocidl.h>

#include <gtest/gtest.h>
#include <wrl/client.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "VeyraCameraToast.h"
#include "win32/UniqueHandle.h"
#include "tests/lab/wire/WirePeer.h"

// The end of a program that was run.
struct ProgramEnd {
    DWORD exitCode;
    std::string errors;  // what it wrote to standard error
};

// Runs the server's file with this whole command line (no program name before it) and waits for its end.
[[nodiscard]] ProgramEnd RunToastControllerFile(const wchar_t* commandLine);

// The full path of the server's file.
[[nodiscard]] std::wstring ToastControllerFile();

// A machine on which the toast controller is registered, for all tests of a suite, and a client in the
// multithreaded apartment. Each test leaves the machine without server and wire.
class ToastControllerFixture : public testing::Test {
  protected:
    static void SetUpTestSuite();
    static void TearDownTestSuite();

    ToastControllerFixture();
    ~ToastControllerFixture() override;

    // Activates the server, or throws; with a wire open its hello is taken and checked as well.
    [[nodiscard]] Microsoft::WRL::ComPtr<IToastCntr> Activate();

    // The laboratory's side of the wire, to be opened before the server is activated.
    void OpenWire();

    // The connection point of the events.
    [[nodiscard]] static Microsoft::WRL::ComPtr<IConnectionPoint> EventsOf(IToastCntr& controller);

    // A handle to the one server process; empty when there is none.
    [[nodiscard]] static win32::UniqueKernelHandle ServerProcess();

    // The exit code of a process that ends in time.
    [[nodiscard]] static std::optional<DWORD> ExitCodeWithin(const win32::UniqueKernelHandle& process,
                                                             std::chrono::milliseconds patience);

    std::unique_ptr<WirePeer> wire_;
};
