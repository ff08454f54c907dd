#include "camera/CameraDevicesFactory.h"

#include "camera/CameraDeviceFactory.h"
#include "camera/KV400UpdatableDeviceFactory.h"
#include "camera/KernelStreaming.h"
#include "camera/MediaFoundation.h"

#include <span>
#include <utility>

using Microsoft::WRL::ComPtr;

namespace {

struct AttributeValue {
    GUID attribute;
    GUID value;
};
using SourceFilter = std::vector<AttributeValue>;

const std::vector<SourceFilter> sourceFilters{
    {{MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE, MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE_VIDCAP_GUID},
     {MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE_VIDCAP_CATEGORY, kSensorCameraCategory}},
    {{MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE, MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE_VIDCAP_GUID}},
};

// The activation objects that MFEnumDeviceSources gives, each with a reference, in an array of COM's memory.
class DeviceSources {
  public:
    DeviceSources() = default;
    DeviceSources(const DeviceSources&) = delete;
    DeviceSources& operator=(const DeviceSources&) = delete;
    ~DeviceSources() {
        for (IMFActivate* const source : All()) {
            if (source != nullptr) {
                source->Release();
            }
        }
        CoTaskMemFree(sources_);
    }

    [[nodiscard]] HRESULT Find(const SourceFilter& filter) {
        HRESULT result = MFCreateAttributes(attributes_.GetAddressOf(), 1);
        if (FAILED(result)) {
            return result;
        }
        for (const auto& [attribute, value] : filter) {
            attributes_->SetGUID(attribute, value);
        }
        return MFEnumDeviceSources(attributes_.Get(), &sources_, &count_);
    }

    [[nodiscard]] std::span<IMFActivate* const> All() const {
        return sources_ == nullptr ? std::span<IMFActivate* const>{} : std::span(sources_, count_);
    }

  private:
    ComPtr<IMFAttributes> attributes_;
    IMFActivate** sources_ = nullptr;
    UINT32 count_ = 0;
};

}  // namespace

CameraDevicesFactory::CameraDevicesFactory(std::ostream* logStream)
    : logStream_(logStream),
      specialisedFactories_{std::make_shared<KV400UpdatableDeviceFactory>()},
      fallbackFactory_(std::make_shared<CameraDeviceFactory>()) {}

std::vector<std::shared_ptr<ICameraDevice>> CameraDevicesFactory::Enumerate() {
    std::vector<std::shared_ptr<ICameraDevice>> cameras;
    for (const SourceFilter& filter : sourceFilters) {
        DeviceSources sources;
        if (FAILED(sources.Find(filter))) {
            return cameras;
        }
        for (IMFActivate* const source : sources.All()) {
            if (auto camera = source != nullptr ? CreateCamera(source) : nullptr) {
                camera->SetLogStream(logStream_);
                cameras.push_back(std::move(camera));
            }
        }
    }
    return cameras;
}

std::shared_ptr<ICameraDevice> CameraDevicesFactory::CreateCamera(IMFActivate* activation) {
    for (const auto& factory : specialisedFactories_) {
        if (auto camera = factory->Create(activation)) {
            return camera;
        }
    }
    return fallbackFactory_->Create(activation);
}
