#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace check {

enum class ProbeOutcome { AsExpected, Different, NotAsked };

// A question to the Windows that runs, about one of the contracts that docs/windows.md lists.
struct Probe {
    unsigned contract;     // its number there; 0 for what all of them rest on
    std::string id;        // for programs
    std::string question;  // what was done
    std::string expected;
    std::string seen;  // or why it was not asked
    ProbeOutcome outcome;
};

// A probe that was carried out: as expected when both texts are the same.
[[nodiscard]] Probe Asked(unsigned contract, std::string id, std::string question, std::string expected,
                          std::string seen);
// One that was not, and why.
[[nodiscard]] Probe NotAsked(unsigned contract, std::string id, std::string question, std::string why);

// What the links of the USB cameras say of their kinds, each kind once.
[[nodiscard]] Probe ProbeLinks(const std::vector<std::string>& links);

// What Windows remembers of a device's answer to the request for the Microsoft OS descriptor ("osvc").
struct RememberedAnswer {
    std::string device;               // vendor, product and bcdDevice
    std::vector<std::uint8_t> bytes;  // 1 and the vendor code where it has one; two zeros where it has none
};
// A note: whether a camera has the descriptor is its own business, since a driver package brings WinUSB, too.
[[nodiscard]] Probe ProbeOsDescriptors(const std::vector<RememberedAnswer>& answers);

// What "windows" says, for a person and for a program.
[[nodiscard]] std::string ProbesText(const std::vector<Probe>& probes);
[[nodiscard]] std::string ProbesJson(const std::vector<Probe>& probes, std::string_view programVersion);

// 0 when everything that was asked is as expected, 10 otherwise.
[[nodiscard]] int ExitCodeOf(const std::vector<Probe>& probes);

}  // namespace check
