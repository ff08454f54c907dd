#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace test_support {

// A firmware image in a file of its own in the temporary folder; gone again with the object.
class ImageFile {
  public:
    explicit ImageFile(const std::vector<std::uint8_t>& bytes, const std::wstring& name = L"image.bin");
    ~ImageFile();

    ImageFile(const ImageFile&) = delete;
    ImageFile& operator=(const ImageFile&) = delete;

    [[nodiscard]] const std::wstring& Path() const { return path_; }

  private:
    std::filesystem::path folder_;
    std::wstring path_;
};

}  // namespace test_support
