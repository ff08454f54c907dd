#include "host/campaign/CameraBus.h"

#include "host/campaign/BrokenRule.h"
#include "lab/rig/bus/TransferErrors.h"
#include "lab/vocabulary/BusEvents.h"

#include <algorithm>
#include <cstring>
#include <cwctype>
#include <utility>

namespace campaign {
namespace {

constexpr std::size_t kInterfaceNumber = 2;  // offset of bInterfaceNumber
constexpr wchar_t kUsbDeviceClass[] = L"#{a5dcbf10-6530-11d2-901f-00c04fb951ed}";

std::wstring LinkOf(std::size_t camera, bool isDfuMode) {
    std::wstring number = std::to_wstring(camera + 1);
    number.insert(0, 4 - std::min<std::size_t>(number.size(), 4), L'0');
    return (isDfuMode ? LR"(\\?\USB#VID_2F1A&PID_7E01#KV400)" : LR"(\\?\usb#vid_2f1a&pid_7e00#kv400)") +
           number + kUsbDeviceClass;
}

// Windows does not care for the case of a link.
bool SameLink(const std::wstring& left, const std::wstring& right) {
    return std::ranges::equal(left, right, {}, towlower, towlower);
}

}  // namespace

CameraBus::CameraBus(VirtualTime& time, ICrossingListener& listener, std::vector<lab::VirtualCamera*> cameras)
    : time_(time),
      listener_(listener),
      createFile_("CreateFileW", &RedirectedCreateFile),
      closeHandle_("CloseHandle", &RedirectedCloseHandle),
      listSize_("CM_Get_Device_Interface_List_SizeW", &ListSize),
      list_("CM_Get_Device_Interface_ListW", &List),
      initialize_("WinUsb_Initialize", &Initialize),
      free_("WinUsb_Free", &Free),
      getDescriptor_("WinUsb_GetDescriptor", &GetDescriptor),
      queryInterfaceSettings_("WinUsb_QueryInterfaceSettings", &QueryInterfaceSettings),
      getAssociatedInterface_("WinUsb_GetAssociatedInterface", &GetAssociatedInterface),
      setCurrentAlternateSetting_("WinUsb_SetCurrentAlternateSetting", &SetCurrentAlternateSetting),
      controlTransfer_("WinUsb_ControlTransfer", &ControlTransfer) {
    for (lab::VirtualCamera* const camera : cameras) {
        places_.push_back({.camera = camera, .link = LinkOf(places_.size(), true)});
    }
    time_.OnAdvance([this](ULONGLONG now) { Look(now); });
}

CameraBus::~CameraBus() {
    time_.OnAdvance({});
}

HRESULT CameraBus::WriteControl(std::size_t camera, std::span<const std::uint8_t> frame) {
    Crossing crossing = Begin(Crossing::What::CommandWrite, camera, frame);
    const lab::TransferResult result = Camera(camera).WriteCommand(frame, time_.Now());
    Pass(result);
    crossing.endedMs = time_.Now();
    crossing.after = frame;
    crossing.transferred = result.transferred;
    crossing.result = lab::PropertyResult(result.end);
    listener_.OnCrossing(crossing);
    return crossing.result;
}

HRESULT CameraBus::ReadControl(std::size_t camera, std::span<std::uint8_t> reply, ULONG& returned) {
    Crossing crossing = Begin(Crossing::What::CommandRead, camera, reply);
    const lab::TransferResult result = Camera(camera).ReadReply(reply, time_.Now());
    Pass(result);
    returned = static_cast<ULONG>(result.transferred);
    crossing.endedMs = time_.Now();
    crossing.after = reply;
    crossing.transferred = result.transferred;
    crossing.result = lab::PropertyResult(result.end);
    listener_.OnCrossing(crossing);
    return crossing.result;
}

// What the cameras do by themselves is noticed when time passes and when they are asked something.
void CameraBus::Look(std::uint64_t nowMs) {
    for (Place& place : places_) {
        place.camera->Advance(nowMs);
        const bool isPresent = place.camera->Mode() == lab::BusMode::Dfu;
        if (place.isPresent && (!isPresent || place.stay != place.camera->Arrivals())) {
            place.leftAtMs = nowMs;
        }
        place.isPresent = isPresent;
        place.stay = place.camera->Arrivals();
    }
}

HANDLE CameraBus::NewHandle() {
    lastHandle_ += 8;
    return reinterpret_cast<HANDLE>(lastHandle_);
}

HANDLE WINAPI CameraBus::RedirectedCreateFile(LPCWSTR path, DWORD access, DWORD sharing,
                                              LPSECURITY_ATTRIBUTES, DWORD disposition, DWORD attributes,
                                              HANDLE) {
    CameraBus& bus = *current_;
    Rule(access == (GENERIC_READ | GENERIC_WRITE) && sharing == (FILE_SHARE_READ | FILE_SHARE_WRITE) &&
             disposition == OPEN_EXISTING && (attributes & FILE_FLAG_OVERLAPPED) != 0,
         "a device is opened for reading and writing, shared, overlapped, as WinUSB wants it");
    bus.Look(bus.time_.Now());
    for (std::size_t camera = 0; camera < bus.places_.size(); ++camera) {
        const Place& place = bus.places_[camera];
        if (place.isPresent && SameLink(place.link, path)) {
            const HANDLE file = bus.NewHandle();
            bus.files_[file] = {.camera = camera, .stay = place.stay};
            return file;
        }
    }
    SetLastError(ERROR_FILE_NOT_FOUND);
    return INVALID_HANDLE_VALUE;
}

BOOL WINAPI CameraBus::RedirectedCloseHandle(HANDLE handle) {
    const auto number = reinterpret_cast<std::uintptr_t>(handle);
    if (number <= kFirstHandle || number > current_->lastHandle_) {
        return current_->closeHandle_.Original<decltype(::CloseHandle)>()(handle);
    }
    return current_->files_.erase(handle) == 1 ? TRUE : current_->RefuseHandle();
}

BOOL CameraBus::RefuseHandle() {
    handlesWereOpen_ = false;
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
}

// What else is on the bus comes first: another vendor's device with the product's number, and another product
// of the vendor's.
std::wstring CameraBus::PresentLinks() const {
    std::wstring links;
    for (const wchar_t* const foreign :
         {LR"(\\?\USB#VID_1F2A&PID_7E01#FOREIGN)", LR"(\\?\USB#VID_2F1A&PID_7E03#OTHER)"}) {
        links += std::wstring(foreign) + kUsbDeviceClass;
        links += L'\0';
    }
    for (std::size_t camera = 0; camera < places_.size(); ++camera) {
        const lab::BusMode mode = places_[camera].camera->Mode();
        if (mode != lab::BusMode::Absent) {
            links += LinkOf(camera, mode == lab::BusMode::Dfu);
            links += L'\0';
        }
    }
    return links + L'\0';
}

CONFIGRET CMAPI CameraBus::ListSize(ULONG* length, GUID*, DEVINSTID_W, ULONG) {
    current_->Look(current_->time_.Now());
    *length = static_cast<ULONG>(current_->PresentLinks().size());
    return CR_SUCCESS;
}

CONFIGRET CMAPI CameraBus::List(GUID*, DEVINSTID_W, wchar_t* buffer, ULONG length, ULONG) {
    const std::wstring links = current_->PresentLinks();
    if (length < links.size()) {
        return CR_BUFFER_SMALL;
    }
    std::copy(links.begin(), links.end(), buffer);
    return CR_SUCCESS;
}

BOOL WINAPI CameraBus::Initialize(HANDLE file, WINUSB_INTERFACE_HANDLE* handle) {
    const auto opened = current_->files_.find(file);
    if (opened == current_->files_.end()) {
        return current_->RefuseHandle();
    }
    *handle = current_->NewHandle();
    current_->interfaces_[*handle] = {.file = opened->second};
    return TRUE;
}

BOOL WINAPI CameraBus::Free(WINUSB_INTERFACE_HANDLE handle) {
    return current_->interfaces_.erase(handle) == 1 ? TRUE : current_->RefuseHandle();
}

const CameraBus::OpenInterface* CameraBus::Find(WINUSB_INTERFACE_HANDLE handle) {
    const auto found = interfaces_.find(handle);
    if (found == interfaces_.end()) {
        RefuseHandle();
        return nullptr;
    }
    return &found->second;
}

std::optional<DWORD> CameraBus::WhyGone(const OpenInterface& opened) const {
    const Place& place = places_[opened.file.camera];
    if (place.isPresent && place.stay == opened.file.stay) {
        return std::nullopt;
    }
    return lab::rig::GoneError(time_.Now() - place.leftAtMs);
}

Crossing CameraBus::Begin(Crossing::What what, std::size_t camera, std::span<const std::uint8_t> buffer) {
    Look(time_.Now());
    before_.assign(buffer.begin(), buffer.end());
    return {.what = what, .camera = camera, .beganMs = time_.Now(), .before = before_};
}

void CameraBus::Pass(const lab::TransferResult& result) {
    if (result.tookMs != 0) {
        time_.Advance(result.tookMs);
    } else {
        Look(time_.Now());
    }
}

BOOL CameraBus::Finish(Crossing& crossing, const lab::TransferResult& result, std::span<std::uint8_t> buffer,
                       ULONG* transferred) {
    Pass(result);
    const DWORD error = lab::WinUsbError(result.end);
    crossing.endedMs = time_.Now();
    crossing.after = buffer;
    crossing.transferred = result.transferred;
    crossing.result = HRESULT_FROM_WIN32(error);
    *transferred = static_cast<ULONG>(result.transferred);
    if (error != ERROR_SUCCESS) {
        SetLastError(error);
    }
    listener_.OnCrossing(crossing);
    return error == ERROR_SUCCESS ? TRUE : FALSE;
}

BOOL CameraBus::FinishGone(Crossing& crossing, DWORD error, std::span<std::uint8_t> buffer,
                           ULONG* transferred) {
    crossing.endedMs = time_.Now();
    crossing.after = buffer;
    crossing.result = HRESULT_FROM_WIN32(error);
    *transferred = 0;
    SetLastError(error);
    listener_.OnCrossing(crossing);
    return FALSE;
}

BOOL WINAPI CameraBus::GetDescriptor(WINUSB_INTERFACE_HANDLE handle, UCHAR type, UCHAR index, USHORT,
                                     UCHAR* buffer, ULONG size, ULONG* transferred) {
    CameraBus& bus = *current_;
    const OpenInterface* const opened = bus.Find(handle);
    if (opened == nullptr) {
        return FALSE;
    }
    const std::span data(buffer, size);
    Crossing crossing = bus.Begin(Crossing::What::Descriptor, opened->file.camera, data);
    crossing.setup.value = type;
    crossing.setup.length = static_cast<std::uint16_t>(size);
    if (const auto error = bus.WhyGone(*opened)) {
        return bus.FinishGone(crossing, *error, data, transferred);
    }
    lab::VirtualCamera& camera = bus.Camera(opened->file.camera);
    return bus.Finish(crossing, camera.ReadDescriptor(type, index, data, bus.time_.Now()), data, transferred);
}

BOOL WINAPI CameraBus::QueryInterfaceSettings(WINUSB_INTERFACE_HANDLE handle, UCHAR alternateNumber,
                                              USB_INTERFACE_DESCRIPTOR* descriptor) {
    CameraBus& bus = *current_;
    const OpenInterface* const opened = bus.Find(handle);
    if (opened == nullptr) {
        return FALSE;
    }
    if (const auto error = bus.WhyGone(*opened)) {
        SetLastError(*error);
        return FALSE;
    }
    const auto interfaces = bus.Camera(opened->file.camera).Interfaces();
    if (opened->position >= interfaces.size() || alternateNumber != 0) {
        SetLastError(ERROR_NO_MORE_ITEMS);
        return FALSE;
    }
    static_assert(sizeof *descriptor == sizeof interfaces.front());
    std::memcpy(descriptor, interfaces[opened->position].data(), sizeof *descriptor);
    return TRUE;
}

BOOL WINAPI CameraBus::GetAssociatedInterface(WINUSB_INTERFACE_HANDLE handle, UCHAR index,
                                              WINUSB_INTERFACE_HANDLE* associated) {
    CameraBus& bus = *current_;
    const OpenInterface* const opened = bus.Find(handle);
    if (opened == nullptr) {
        return FALSE;
    }
    if (const auto error = bus.WhyGone(*opened)) {
        SetLastError(*error);
        return FALSE;
    }
    const std::size_t position = opened->position + 1 + index;
    if (position >= bus.Camera(opened->file.camera).Interfaces().size()) {
        SetLastError(ERROR_NO_MORE_ITEMS);
        return FALSE;
    }
    const OpenInterface next{.file = opened->file, .position = position};
    *associated = bus.NewHandle();
    bus.interfaces_[*associated] = next;
    return TRUE;
}

BOOL WINAPI CameraBus::SetCurrentAlternateSetting(WINUSB_INTERFACE_HANDLE handle, UCHAR setting) {
    CameraBus& bus = *current_;
    const OpenInterface* const opened = bus.Find(handle);
    if (opened == nullptr) {
        return FALSE;
    }
    ULONG transferred = 0;
    Crossing crossing = bus.Begin(Crossing::What::SetInterface, opened->file.camera, {});
    crossing.setup.value = setting;
    lab::VirtualCamera& camera = bus.Camera(opened->file.camera);
    const auto interfaces = camera.Interfaces();
    if (opened->position < interfaces.size()) {
        crossing.setup.index = interfaces[opened->position][kInterfaceNumber];
    }
    if (const auto error = bus.WhyGone(*opened)) {
        return bus.FinishGone(crossing, *error, {}, &transferred);
    }
    return bus.Finish(crossing, camera.SetInterface(bus.time_.Now()), {}, &transferred);
}

BOOL WINAPI CameraBus::ControlTransfer(WINUSB_INTERFACE_HANDLE handle, WINUSB_SETUP_PACKET setup,
                                       UCHAR* buffer, ULONG size, ULONG* transferred, OVERLAPPED*) {
    CameraBus& bus = *current_;
    const OpenInterface* const opened = bus.Find(handle);
    if (opened == nullptr) {
        return FALSE;
    }
    if (setup.Length > size) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const std::span data(buffer, size);
    Crossing crossing = bus.Begin(Crossing::What::Transfer, opened->file.camera, data);
    crossing.setup = {.requestType = setup.RequestType,
                      .request = setup.Request,
                      .value = setup.Value,
                      .index = setup.Index,
                      .length = setup.Length};
    if (const auto error = bus.WhyGone(*opened)) {
        return bus.FinishGone(crossing, *error, data, transferred);
    }
    lab::VirtualCamera& camera = bus.Camera(opened->file.camera);
    return bus.Finish(crossing, camera.ControlTransfer(crossing.setup, data, bus.time_.Now()), data,
                      transferred);
}

}  // namespace campaign
