#include <windows.h>

#include <gtest/gtest.h>

#include <array>
#include <string>

namespace {

constexpr DWORD kEnglish = MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_US);
constexpr DWORD kGerman = MAKELANGID(LANG_GERMAN, SUBLANG_GERMAN);

// What an event viewer shows for a record of the service: the words of its number, with the record's texts in
// them.
std::wstring Shown(DWORD language) {
    const HMODULE words = LoadLibraryExW(L"VeyraCameraDfuMessages.dll", nullptr, LOAD_LIBRARY_AS_DATAFILE);
    EXPECT_NE(words, nullptr);
    std::array<const wchar_t*, 2> inserts{L"VeyraCameraDfuService", L"KV400CameraService::OnStart Enter"};
    std::array<wchar_t, 256> text{};
    constexpr DWORD kFrom = FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_ARGUMENT_ARRAY;
    constexpr DWORD kNumber = 0;
    const DWORD length =
        FormatMessageW(kFrom, words, kNumber, language, text.data(), static_cast<DWORD>(text.size()),
                       reinterpret_cast<va_list*>(const_cast<wchar_t**>(inserts.data())));
    FreeLibrary(words);
    return {text.data(), length};
}

TEST(ServiceMessages, ShowARecordsNameAndText) {
    EXPECT_EQ(Shown(kEnglish),
              L"The service VeyraCameraDfuService says: KV400CameraService::OnStart Enter\r\n");
    EXPECT_EQ(Shown(kGerman),
              L"Der Dienst VeyraCameraDfuService meldet: KV400CameraService::OnStart Enter\r\n");
}

TEST(ServiceMessages, HaveNoCode) {
    const HMODULE words = LoadLibraryExW(L"VeyraCameraDfuMessages.dll", nullptr, DONT_RESOLVE_DLL_REFERENCES);
    ASSERT_NE(words, nullptr);
    const auto* base = reinterpret_cast<const BYTE*>(words);
    const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
    const auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS64*>(base + dos->e_lfanew);
    EXPECT_EQ(headers->OptionalHeader.AddressOfEntryPoint, 0U);
    EXPECT_EQ(headers->OptionalHeader.SizeOfCode, 0U);
    FreeLibrary(words);
}

}  // namespace
