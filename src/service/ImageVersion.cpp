#include "service/ImageVersion.h"

#include "win32/BinaryFile.h"

#include <algorithm>

namespace {

constexpr std::streamoff kVersionOffset = 398;

}  // namespace

ImageVersionRead ReadImageVersionBytes(const std::wstring& imagePath, std::array<std::uint8_t, 4>& version) {
    std::ifstream image = win32::OpenBinaryFile(imagePath);
    if (!image.good() || !image.is_open()) {
        return ImageVersionRead::NotOpened;
    }
    std::array<char, 4> bytes{};
    image.seekg(kVersionOffset);
    image.read(bytes.data(), bytes.size());
    if (!image) {
        return ImageVersionRead::NotRead;
    }
    std::copy(bytes.begin(), bytes.end(), version.begin());
    return ImageVersionRead::Done;
}
