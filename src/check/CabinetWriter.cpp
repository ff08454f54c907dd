#include "check/CabinetWriter.h"

#include "check/Utf8.h"

#include <windows.h>
#include <fci.h>

#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

// The callbacks of cabinet.dll. It hands paths on as it got them, and these are UTF-8 here. `user` is the
// Writer.
// NOLINTBEGIN(readability-non-const-parameter): the parameters are cabinet.dll's

namespace check {
namespace {

constexpr USHORT kCompression = tcompTYPE_MSZIP;
constexpr ULONG kMostBytes = 0x7FFFFFFF;

struct Writer {
    std::string folder;
    unsigned temporaryFiles = 0;
};

void* DIAMONDAPI Allocate(ULONG size) {
    return HeapAlloc(GetProcessHeap(), 0, size);
}

void DIAMONDAPI Free(void* memory) {
    HeapFree(GetProcessHeap(), 0, memory);
}

INT_PTR DIAMONDAPI Open(char* path, int flags, int mode, int* error, void*) {
    const int file = _wopen(Wide(path).c_str(), flags | _O_BINARY, mode);
    *error = file < 0 ? errno : 0;
    return file;
}

UINT DIAMONDAPI Read(INT_PTR file, void* memory, UINT size, int* error, void*) {
    const int read = _read(static_cast<int>(file), memory, size);
    *error = read < 0 ? errno : 0;
    return static_cast<UINT>(read);
}

UINT DIAMONDAPI Write(INT_PTR file, void* memory, UINT size, int* error, void*) {
    const int written = _write(static_cast<int>(file), memory, size);
    *error = written < 0 ? errno : 0;
    return static_cast<UINT>(written);
}

int DIAMONDAPI Close(INT_PTR file, int* error, void*) {
    const int result = _close(static_cast<int>(file));
    *error = result < 0 ? errno : 0;
    return result;
}

LONG DIAMONDAPI Seek(INT_PTR file, LONG distance, int origin, int* error, void*) {
    const LONG position = _lseek(static_cast<int>(file), distance, origin);
    *error = position < 0 ? errno : 0;
    return position;
}

int DIAMONDAPI Delete(char* path, int* error, void*) {
    const int result = _wremove(Wide(path).c_str());
    *error = result < 0 ? errno : 0;
    return result;
}

BOOL DIAMONDAPI NameTemporaryFile(char* path, int capacity, void* user) {
    auto& writer = *static_cast<Writer*>(user);
    const std::string name = writer.folder + "\\part-" + std::to_string(++writer.temporaryFiles);
    if (capacity <= 0 || name.size() >= static_cast<std::size_t>(capacity)) {
        return FALSE;
    }
    std::memcpy(path, name.c_str(), name.size() + 1);
    return TRUE;
}

BOOL DIAMONDAPI NextCabinet(CCAB*, ULONG, void*) {
    return FALSE;  // all goes into one
}

int DIAMONDAPI Placed(CCAB*, char*, LONG, BOOL, void*) {
    return 0;
}

LONG DIAMONDAPI Status(UINT, ULONG, ULONG, void*) {
    return 0;
}

INT_PTR DIAMONDAPI OpenSource(char* path, USHORT* date, USHORT* time, USHORT* attributes, int* error, void*) {
    SYSTEMTIME now{};
    FILETIME fileTime{};
    GetLocalTime(&now);
    SystemTimeToFileTime(&now, &fileTime);
    FileTimeToDosDateTime(&fileTime, date, time);
    *attributes = _A_ARCH;
    const int file = _wopen(Wide(path).c_str(), _O_RDONLY | _O_BINARY);
    *error = file < 0 ? errno : 0;
    return file;
}

// NOLINTEND(readability-non-const-parameter)

template <std::size_t Size>
bool Fits(char (&field)[Size], const std::string& text) {
    if (text.size() >= Size) {
        return false;
    }
    std::memcpy(field, text.c_str(), text.size() + 1);
    return true;
}

bool AddAll(HFCI cabinet, const std::vector<CabinetEntry>& entries) {
    return std::all_of(entries.begin(), entries.end(), [cabinet](const CabinetEntry& entry) {
        return FCIAddFile(cabinet, const_cast<char*>(entry.path.c_str()),
                          const_cast<char*>(entry.name.c_str()), FALSE, &NextCabinet, &Status, &OpenSource,
                          kCompression) != FALSE;
    });
}

}  // namespace

std::string WriteCabinet(const std::vector<CabinetEntry>& entries, const std::string& folder,
                         const std::string& name) {
    Writer writer{folder};
    CCAB parameters{};
    parameters.cb = kMostBytes;
    parameters.cbFolderThresh = kMostBytes;
    if (!Fits(parameters.szCabPath, folder + "\\") || !Fits(parameters.szCab, name)) {
        return "the path of the cabinet is too long";
    }
    ERF error{};
    const HFCI cabinet = FCICreate(&error, &Placed, &Allocate, &Free, &Open, &Read, &Write, &Close, &Seek,
                                   &Delete, &NameTemporaryFile, &parameters, &writer);
    if (cabinet == nullptr) {
        return "cabinet.dll refuses (" + std::to_string(error.erfOper) + ")";
    }
    const bool isWritten =
        AddAll(cabinet, entries) && FCIFlushCabinet(cabinet, FALSE, &NextCabinet, &Status) != FALSE;
    FCIDestroy(cabinet);
    return isWritten ? std::string()
                     : "the cabinet could not be written (" + std::to_string(error.erfOper) + ", " +
                           std::to_string(error.erfType) + ")";
}

}  // namespace check
