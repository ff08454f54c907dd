#pragma once

#include <cstdint>

namespace lab {

// One thing that a scenario makes go wrong. It strikes the `count` requests (or firmware commands) of its
// kind, or page operations, that follow the first `skip` of them; count 0 means every one from there on. Each
// fault counts by itself, and only what reaches the camera in the mode in which it understands the request.
struct Fault {
    enum class Where {
        Detach,
        Dnload,
        Upload,
        GetStatus,
        ClrStatus,
        GetState,
        Abort,
        CommandWrite,   // the extension unit's SET
        CommandRead,    // the extension unit's GET
        GetDescriptor,  // DFU mode: a descriptor is read
        SetInterface,   // DFU mode: an alternate setting is chosen
        FlashErase,     // DFU mode: a page of the flash is erased
        FlashWrite,     // DFU mode: a page of the flash is written
    };
    // Stall, Timeout and Unplug go with every request, Unplug alone with the two page operations; what they
    // strike is not done unless their `moment` says otherwise, and where several strike at once the first in
    // the list decides, as it does among others that change the same. The others change the answer to a
    // request that the device carries out, go only with the places named, and never strike elsewhere.
    enum class What {
        Stall,     // the request is refused; a DFU request also moves the device to dfuERROR when `setsError`
        Timeout,   // nothing answers
        Unplug,    // power goes and the camera leaves the bus before it answers, and stays away. A block is
                   // answered before its pages are written
        Status,    // GETSTATUS answers with bStatus = value
        State,     // GETSTATUS or GETSTATE answers with bState = value
        PollTime,  // GETSTATUS answers with bwPollTimeout = value
        ShortReply,  // UPLOAD, GETSTATUS, GETSTATE, CommandRead, GetDescriptor: the data stage ends after
                     // `value` bytes
        WrongEcho,   // CommandRead: the firmware reply's opcode echo is `value`
    };
    // When Stall, Timeout and Unplug strike.
    enum class Moment {
        Before,  // nothing is done
        Middle,  // DNLOAD: the device has taken the first `value` bytes of the block, half of it for 0, and
                 // stays in its state; a page operation: torn. Never strikes elsewhere
        After,   // it is done, and only its answer is lost. A stall then leaves the device as the request has
                 // made it
    };
    // How many of each there are.
    static constexpr unsigned kPlaces = static_cast<unsigned>(Where::FlashWrite) + 1;
    static constexpr unsigned kKinds = static_cast<unsigned>(What::WrongEcho) + 1;

    Where where = Where::GetStatus;
    What what = What::Stall;
    unsigned skip = 0;
    unsigned count = 1;
    std::uint32_t value = 0;
    bool setsError = true;
    Moment moment = Moment::Before;
};

}  // namespace lab
