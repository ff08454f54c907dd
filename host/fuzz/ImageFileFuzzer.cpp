#include "dfu/DfuCommand.h"
#include "host/fuzz/FuzzInput.h"
#include "host/fuzz/Promise.h"
#include "service/ImageVersion.h"
#include "tests/dfu/FakeUsbControlEndpoint.h"
#include "tests/support/FakeClock.h"
#include "win32/VersionText.h"

#include <array>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

// Image files of any size and content, loaded and looked into.
//
// Input: how the path is written (see Written), the transfer size (u16), how often the content is repeated
// (u8), the content.

namespace {

using fuzz::FuzzInput;
using fuzz::Promise;
using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t kLongest = 1 << 14;
constexpr std::size_t kMostBlocks = 200;

// A file in memory.
class MemoryFile {
  public:
    explicit MemoryFile(const Bytes& content) : descriptor_(memfd_create("image", MFD_CLOEXEC)) {
        const ssize_t written = write(descriptor_, content.data(), content.size());
        Promise(written == static_cast<ssize_t>(content.size()), "the fuzzer can make its file");
    }
    ~MemoryFile() { close(descriptor_); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    [[nodiscard]] std::wstring Path() const { return L"/proc/self/fd/" + std::to_wstring(descriptor_); }

  private:
    int descriptor_;
};

enum class Written { Plain, InQuotes, QuoteInFront, QuoteBehind, Missing, OneQuote, Empty };

std::wstring PathText(Written written, const std::wstring& path) {
    switch (written) {
        case Written::Plain:
            return path;
        case Written::InQuotes:
            return L'"' + path + L'"';
        case Written::QuoteInFront:
            return L'"' + path;
        case Written::QuoteBehind:
            return path + L'"';
        case Written::Missing:
            return path + L"0";
        case Written::OneQuote:
            return L"\"";
        case Written::Empty:
            return L"";
    }
    return path;
}

void CheckDownload(Written written, const std::wstring& path, std::uint16_t transferSize,
                   const Bytes& content) {
    const test_support::FakeClock clock;
    const auto endpoint = std::make_shared<FakeUsbControlEndpoint>(transferSize);
    dfu::DfuCommand command(endpoint, 0, nullptr, {});
    const std::wstring text = PathText(written, path);
    HRESULT result = E_FAIL;
    try {
        result = command.UpdateFromFile(text.c_str());
    } catch (const std::out_of_range&) {
        Promise(written == Written::OneQuote, "only a single quote raises the range error");
    }
    const bool isOpened = written == Written::Plain || written == Written::InQuotes;
    const bool isSent = isOpened && (transferSize != 0 || content.empty());
    Promise(result == (isSent ? S_OK : E_FAIL), "a file that is there is downloaded, every other fails");
    Promise(endpoint->Downloaded() == (isSent ? content : Bytes()), "the file goes to the device as it is");
    Promise(isOpened || endpoint->Requests().empty(), "without a file the device is not touched");
}

void CheckVersion(const std::wstring& path, const Bytes& content) {
    std::array<std::uint8_t, 4> version{1, 2, 3, 4};
    const ImageVersionRead read = ReadImageVersionBytes(path, version);
    if (content.size() < 402) {
        Promise(read == ImageVersionRead::NotRead, "a file that ends before its version has none");
        Promise(version == std::array<std::uint8_t, 4>{1, 2, 3, 4},
                "a version that was not read is left alone");
        return;
    }
    Promise(read == ImageVersionRead::Done, "a file that is long enough has a version");
    std::wstring expected;
    for (std::size_t place = 401; place > 397; --place) {
        expected += std::to_wstring(int{content[place]}) + (place > 398 ? L"." : L"");
    }
    Promise(win32::VersionText(version) == expected, "the version is the four bytes from 401 down to 398");
    Promise(ReadImageVersionBytes(path + L"0", version) == ImageVersionRead::NotOpened,
            "a missing file is not opened");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    const auto written = static_cast<Written>(input.Byte() % 7);
    std::uint16_t transferSize = input.Word();
    const std::size_t repeats = 1 + std::size_t{input.Byte()};
    const Bytes once = input.Rest();
    Bytes content;
    for (std::size_t repeat = 0; repeat < repeats && content.size() + once.size() <= kLongest; ++repeat) {
        content.insert(content.end(), once.begin(), once.end());
    }
    if (transferSize != 0 && content.size() / transferSize > kMostBlocks) {
        transferSize = 512;  // so that an input stays quick
    }
    const MemoryFile file(content);
    CheckDownload(written, file.Path(), transferSize, content);
    CheckVersion(file.Path(), content);
    return 0;
}
