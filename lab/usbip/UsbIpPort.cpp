#include "lab/usbip/UsbIpPort.h"

#include <utility>

namespace lab {

UsbIpPort::UsbIpPort(Socket listener, ServedCameras& cameras, ImportedCameras& imported, ServerLoop& loop)
    : listener_(std::move(listener)), cameras_(cameras), imported_(imported), loop_(loop) {}

bool UsbIpPort::Serve(std::uint64_t) {
    Socket socket = listener_.Accept();
    if (socket.IsOpen()) {
        loop_.Add(std::make_unique<UsbIpConnection>(std::move(socket), cameras_, imported_));
    }
    return true;
}

}  // namespace lab
