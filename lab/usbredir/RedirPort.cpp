#include "lab/usbredir/RedirPort.h"

#include "lab/usbredir/RedirConnection.h"

#include <memory>
#include <utility>

namespace lab {

RedirPort::RedirPort(Socket listener, ServedCamera& camera, ServerLoop& loop)
    : listener_(std::move(listener)), camera_(camera), loop_(loop) {}

bool RedirPort::Serve(std::uint64_t) {
    Socket socket = listener_.Accept();
    if (socket.IsOpen()) {
        *isTaken_ = true;
        loop_.Add(std::make_unique<RedirConnection>(std::move(socket), camera_,
                                                    [isTaken = isTaken_] { *isTaken = false; }));
    }
    return true;
}

}  // namespace lab
