#include "host/bench/EngineDownload.h"

#include "dfu/DfuCommand.h"

#include <stdexcept>

namespace bench {
namespace {

constexpr std::size_t kProbeSize = 68;

}  // namespace

void DownloadWithEngine(const ReadyCamera& camera, const std::vector<std::uint8_t>& image) {
    std::int32_t lastBlock = 0;
    dfu::DfuCommand command(camera.Endpoint(), kProbeSize, nullptr,
                            [&lastBlock](std::int32_t block) { lastBlock = block; });
    if (FAILED(command.Update(image.data(), image.size()))) {
        throw std::runtime_error("the engine failed");
    }
}

}  // namespace bench
