#include "check/FileDigest.h"

#include "win32/UniqueHandle.h"

#include <bcrypt.h>

#include <array>
#include <cstdint>
#include <vector>

namespace check {
namespace {

constexpr std::size_t kPieceSize = 65536;
constexpr std::size_t kDigestSize = 32;

struct AlgorithmTraits {
    using Handle = BCRYPT_ALG_HANDLE;
    static Handle Empty() { return nullptr; }
    static void Close(Handle handle) { BCryptCloseAlgorithmProvider(handle, 0); }
};

struct HashTraits {
    using Handle = BCRYPT_HASH_HANDLE;
    static Handle Empty() { return nullptr; }
    static void Close(Handle handle) { BCryptDestroyHash(handle); }
};

DWORD HashFile(HANDLE file, BCRYPT_HASH_HANDLE hash) {
    std::vector<std::uint8_t> piece(kPieceSize);
    while (true) {
        DWORD read = 0;
        if (!ReadFile(file, piece.data(), static_cast<DWORD>(piece.size()), &read, nullptr)) {
            return GetLastError();
        }
        if (read == 0) {
            return ERROR_SUCCESS;
        }
        if (const NTSTATUS status = BCryptHashData(hash, piece.data(), read, 0); status < 0) {
            return static_cast<DWORD>(status);
        }
    }
}

}  // namespace

std::string Sha256Of(HANDLE file, DWORD& error) {
    win32::UniqueHandle<AlgorithmTraits> algorithm;
    win32::UniqueHandle<HashTraits> hash;
    NTSTATUS status = BCryptOpenAlgorithmProvider(algorithm.Receive(), BCRYPT_SHA256_ALGORITHM, nullptr, 0);
    if (status >= 0) {
        status = BCryptCreateHash(algorithm.Get(), hash.Receive(), nullptr, 0, nullptr, 0, 0);
    }
    std::array<std::uint8_t, kDigestSize> digest{};
    if (status >= 0) {
        error = HashFile(file, hash.Get());
        if (error != ERROR_SUCCESS) {
            return {};
        }
        status = BCryptFinishHash(hash.Get(), digest.data(), static_cast<ULONG>(digest.size()), 0);
    }
    error = status < 0 ? static_cast<DWORD>(status) : ERROR_SUCCESS;
    if (status < 0) {
        return {};
    }
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const std::uint8_t byte : digest) {
        text += kDigits[byte >> 4U];
        text += kDigits[byte & 0xFU];
    }
    return text;
}

}  // namespace check
