#include "tests/support/FakeKsControl.h"

#include <cstring>
#include <stdexcept>
#include <utility>

namespace test_support {
namespace {

std::vector<BYTE> Bytes(const void* start, ULONG length) {
    if (start == nullptr) {
        return {};
    }
    const auto* const bytes = static_cast<const BYTE*>(start);
    return {bytes, bytes + length};
}

}  // namespace

GUID KsCall::Set() const {
    GUID set{};
    if (descriptor.size() < sizeof set) {
        throw std::out_of_range("the descriptor has no property set");
    }
    std::memcpy(&set, descriptor.data(), sizeof set);
    return set;
}

ULONG KsCall::Word(std::size_t offset) const {
    ULONG word = 0;
    if (descriptor.size() < offset + sizeof word) {
        throw std::out_of_range("the descriptor is too short");
    }
    std::memcpy(&word, descriptor.data() + offset, sizeof word);
    return word;
}

void FakeKsControl::SetAnswer(Answer answer) {
    const std::scoped_lock guard(lock_);
    answer_ = std::move(answer);
}

void FakeKsControl::SetControlResult(HRESULT result, bool givesObject) {
    controlResult_ = result;
    givesControl_ = givesObject;
}

std::vector<GUID> FakeKsControl::Queries() const {
    const std::scoped_lock guard(lock_);
    return queries_;
}

std::vector<KsCall> FakeKsControl::Calls() const {
    const std::scoped_lock guard(lock_);
    return calls_;
}

HRESULT FakeKsControl::QueryInterface(REFIID interfaceId, void** object) {
    {
        const std::scoped_lock guard(lock_);
        queries_.push_back(interfaceId);
    }
    *object = nullptr;
    if (interfaceId == __uuidof(IKsControl)) {
        if (FAILED(controlResult_) || !givesControl_) {
            return controlResult_;
        }
    } else if (interfaceId != __uuidof(IUnknown)) {
        return E_NOINTERFACE;
    }
    *object = static_cast<IKsControl*>(this);
    AddRef();
    return S_OK;
}

ULONG FakeKsControl::AddRef() {
    return static_cast<ULONG>(++references_);
}

ULONG FakeKsControl::Release() {
    const long left = --references_;
    if (left == 0 && onLastRelease_) {
        onLastRelease_();
    }
    return static_cast<ULONG>(left);
}

HRESULT FakeKsControl::KsProperty(PKSPROPERTY property, ULONG propertyLength, void* data, ULONG dataLength,
                                  ULONG* bytesReturned) {
    return Call(KsCall::Operation::Property, property, propertyLength, data, dataLength, bytesReturned);
}

HRESULT FakeKsControl::KsMethod(PKSMETHOD method, ULONG methodLength, void* data, ULONG dataLength,
                                ULONG* bytesReturned) {
    return Call(KsCall::Operation::Method, method, methodLength, data, dataLength, bytesReturned);
}

HRESULT FakeKsControl::KsEvent(PKSEVENT event, ULONG eventLength, void* data, ULONG dataLength,
                               ULONG* bytesReturned) {
    return Call(KsCall::Operation::Event, event, eventLength, data, dataLength, bytesReturned);
}

HRESULT FakeKsControl::Call(KsCall::Operation operation, const void* descriptor, ULONG descriptorLength,
                            void* data, ULONG dataLength, ULONG* bytesReturned) {
    const KsCall call{operation,
                      Bytes(descriptor, descriptorLength),
                      data,
                      dataLength,
                      Bytes(data, dataLength),
                      bytesReturned,
                      bytesReturned == nullptr ? 0 : *bytesReturned};
    Answer answer;
    {
        const std::scoped_lock guard(lock_);
        calls_.push_back(call);
        answer = answer_;
    }
    return answer ? answer(call) : S_OK;
}

}  // namespace test_support
