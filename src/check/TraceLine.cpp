#include "check/TraceLine.h"

#include <array>
#include <cstdio>

namespace check {

std::string TraceLine(const TraceFormats& formats, const TraceEvent& event) {
    FILETIME local{};
    SYSTEMTIME time{};
    FileTimeToLocalFileTime(&event.time, &local);
    FileTimeToSystemTime(&local, &time);
    std::array<char, 80> head{};
    std::snprintf(head.data(), head.size(), "[0]%04X.%04X::%02u/%02u/%04u-%02u:%02u:%02u.%03u [",
                  static_cast<unsigned>(event.processId), static_cast<unsigned>(event.threadId),
                  static_cast<unsigned>(time.wMonth), static_cast<unsigned>(time.wDay),
                  static_cast<unsigned>(time.wYear), static_cast<unsigned>(time.wHour),
                  static_cast<unsigned>(time.wMinute), static_cast<unsigned>(time.wSecond),
                  static_cast<unsigned>(time.wMilliseconds));
    return head.data() + formats.NameOf(event.group) + "]" +
           formats.Text(event.group, event.number, event.payload) + "\n";
}

}  // namespace check
