#include "tests/toast/server/TestSink.h"

#include <utility>

#include "prompt/IToastCntr.h"

namespace {

constexpr int kLooks = 1000;
constexpr DWORD kLookMs = 10;
constexpr DISPID kUserRespond = 1;

class Lock {
  public:
    explicit Lock(CRITICAL_SECTION& section) : section_(section) { EnterCriticalSection(&section_); }
    ~Lock() { LeaveCriticalSection(&section_); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

  private:
    CRITICAL_SECTION& section_;
};

template <typename Condition>
bool InTime(Condition condition) {
    for (int look = 0; look < kLooks && !condition(); ++look) {
        Sleep(kLookMs);
    }
    return condition();
}

}  // namespace

TestSink::TestSink(Answers answers) : answers_(answers) {
    InitializeCriticalSection(&lock_);
}

TestSink::~TestSink() {
    DeleteCriticalSection(&lock_);
}

void TestSink::Answer(HRESULT result, std::function<void()> action) {
    const Lock lock(lock_);
    result_ = result;
    action_ = std::move(action);
}

std::vector<LONG> TestSink::Fired(std::size_t count) const {
    const auto all = [this] {
        const Lock lock(lock_);
        return fired_;
    };
    InTime([&] { return all().size() >= count; });
    return all();
}

int TestSink::Probed(int count) const {
    InTime([&] { return probed_ >= count; });
    return probed_;
}

bool TestSink::IsReleased() const {
    return InTime([&] { return References() == 0; });
}

STDMETHODIMP TestSink::QueryInterface(REFIID interfaceId, void** object) {
    const bool isKnown = interfaceId == __uuidof(IUnknown) ||
                         (answers_ != Answers::kOnlyUnknown && interfaceId == __uuidof(IDispatch)) ||
                         (answers_ == Answers::kTheEvents && interfaceId == kIidToastCntrEvents);
    *object = isKnown ? static_cast<IDispatch*>(this) : nullptr;
    if (isKnown) {
        AddRef();
    }
    return isKnown ? S_OK : E_NOINTERFACE;
}

STDMETHODIMP_(ULONG) TestSink::Release() {
    const ULONG left = --references_;
    if (left == 0) {
        delete this;
    }
    return left;
}

STDMETHODIMP TestSink::GetTypeInfoCount(UINT* count) {
    *count = 0;
    ++probed_;
    return Act();
}

STDMETHODIMP TestSink::Invoke(DISPID id, REFIID, LCID, WORD flags, DISPPARAMS* parameters, VARIANT*,
                              EXCEPINFO*, UINT*) {
    if (id != kUserRespond || flags != DISPATCH_METHOD || parameters->cArgs != 1 ||
        V_VT(&parameters->rgvarg[0]) != VT_I4) {
        return DISP_E_MEMBERNOTFOUND;
    }
    {
        const Lock lock(lock_);
        fired_.push_back(V_I4(&parameters->rgvarg[0]));
    }
    return Act();
}

HRESULT TestSink::Act() {
    HRESULT result = S_OK;
    std::function<void()> action;
    {
        const Lock lock(lock_);
        result = result_;
        action = action_;
    }
    action();
    return result;
}
