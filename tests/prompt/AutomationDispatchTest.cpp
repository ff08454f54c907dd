#include "prompt/AutomationDispatch.h"

#include <gtest/gtest.h>

#include "tests/support/DispatchCall.h"

#include <oleauto.h>

#include <atomic>
#include <future>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <vector>

namespace {

using Microsoft::WRL::ComPtr;
using test_support::NumberVariant;

constexpr IID kMapped{0x11111111, 0x2222, 0x3333, {0x44, 0x44, 0x55, 0x55, 0x55, 0x55, 0x55, 0x55}};
constexpr IID kUnmapped{0x11111111, 0x2222, 0x3333, {0x44, 0x44, 0x55, 0x55, 0x55, 0x55, 0x55, 0x56}};

// Gives the tests a target's maps, which only targets can name.
class Target final : public CCmdTarget {
  public:
    static ComPtr<AutomationDispatch> Make(std::function<LONG(LONG)> method) {
        return AutomationDispatch::Create(DispatchMap{{L"Answer", std::move(method)}}, InterfaceMap{kMapped});
    }
};

class AutomationDispatchTest : public testing::Test {
  protected:
    struct Outcome {
        HRESULT status;
        VARIANT result;
        UINT badArgument;
    };

    [[nodiscard]] Outcome Invoke(VARIANT argument, DISPID id = 1, WORD flags = DISPATCH_METHOD) {
        DISPPARAMS parameters{&argument, nullptr, 1, 0};
        return InvokeWith(&parameters, id, flags);
    }
    [[nodiscard]] Outcome InvokeWith(DISPPARAMS* parameters, DISPID id = 1, WORD flags = DISPATCH_METHOD) {
        Outcome outcome{};
        VariantInit(&outcome.result);
        outcome.badArgument = 99;
        outcome.status = dispatch_->Invoke(id, IID_NULL, LOCALE_NEUTRAL, flags, parameters, &outcome.result,
                                           nullptr, &outcome.badArgument);
        return outcome;
    }
    HRESULT IdsOf(std::vector<std::wstring> names, std::vector<DISPID>& ids) {
        std::vector<wchar_t*> pointers;
        for (std::wstring& name : names) {
            pointers.push_back(name.data());
        }
        ids.assign(names.size(), 77);
        return dispatch_->GetIDsOfNames(IID_NULL, pointers.data(), static_cast<UINT>(pointers.size()),
                                        LOCALE_NEUTRAL, ids.data());
    }

    std::vector<LONG> received_;
    ComPtr<AutomationDispatch> dispatch_ = Target::Make([this](LONG value) {
        received_.push_back(value);
        return value + 1;
    });
};

TEST_F(AutomationDispatchTest, AnswersUnknownDispatchAndTheMappedInterfaceWithOnePointer) {
    for (const IID& interfaceId : {IID_IUnknown, IID_IDispatch, kMapped}) {
        void* object = nullptr;
        ASSERT_EQ(dispatch_->QueryInterface(interfaceId, &object), S_OK);
        EXPECT_EQ(object, static_cast<IDispatch*>(dispatch_.Get()));
        EXPECT_EQ(dispatch_->Release(), 1u);
    }
}

TEST_F(AutomationDispatchTest, RefusesEveryOtherInterfaceWithNull) {
    void* object = this;
    EXPECT_EQ(dispatch_->QueryInterface(kUnmapped, &object), E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);
    dispatch_->AddRef();
    EXPECT_EQ(dispatch_->Release(), 1u);
}

TEST_F(AutomationDispatchTest, RefusesAQueryWithoutAPlaceForTheAnswer) {
    EXPECT_EQ(dispatch_->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
}

TEST_F(AutomationDispatchTest, CountsItsReferencesAndGoesWithTheLast) {
    auto alive = std::make_shared<int>(0);
    const std::weak_ptr<int> watched = alive;
    ComPtr<AutomationDispatch> dispatch = Target::Make([alive](LONG value) { return value; });
    alive.reset();
    EXPECT_EQ(dispatch->AddRef(), 2u);
    EXPECT_EQ(dispatch->Release(), 1u);
    EXPECT_FALSE(watched.expired());
    dispatch.Reset();
    EXPECT_TRUE(watched.expired());
}

TEST_F(AutomationDispatchTest, HasNoTypeInformation) {
    UINT count = 99;
    EXPECT_EQ(dispatch_->GetTypeInfoCount(&count), S_OK);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(dispatch_->GetTypeInfoCount(nullptr), E_POINTER);
    auto* information = reinterpret_cast<ITypeInfo*>(this);
    EXPECT_EQ(dispatch_->GetTypeInfo(0, LOCALE_NEUTRAL, &information), E_NOTIMPL);
    EXPECT_EQ(information, nullptr);
    EXPECT_EQ(dispatch_->GetTypeInfo(0, LOCALE_NEUTRAL, nullptr), E_NOTIMPL);
}

TEST_F(AutomationDispatchTest, FindsANameWithoutRegardToCase) {
    std::vector<DISPID> ids;
    EXPECT_EQ(IdsOf({L"Answer"}, ids), S_OK);
    EXPECT_EQ(ids, std::vector<DISPID>{1});
    EXPECT_EQ(IdsOf({L"aNSWER"}, ids), S_OK);
    EXPECT_EQ(ids, std::vector<DISPID>{1});
}

TEST_F(AutomationDispatchTest, DoesNotKnowOtherNames) {
    std::vector<DISPID> ids;
    EXPECT_EQ(IdsOf({L"Answe"}, ids), DISP_E_UNKNOWNNAME);
    EXPECT_EQ(ids, std::vector<DISPID>{DISPID_UNKNOWN});
}

TEST_F(AutomationDispatchTest, DoesNotKnowTheNamesOfParameters) {
    std::vector<DISPID> ids;
    EXPECT_EQ(IdsOf({L"Answer", L"code"}, ids), DISP_E_UNKNOWNNAME);
    EXPECT_EQ(ids, (std::vector<DISPID>{1, DISPID_UNKNOWN}));
}

TEST_F(AutomationDispatchTest, RefusesAQuestionWithoutNames) {
    DISPID id = 0;
    wchar_t name[] = L"Answer";
    wchar_t* names[] = {name};
    EXPECT_EQ(dispatch_->GetIDsOfNames(IID_NULL, nullptr, 1, LOCALE_NEUTRAL, &id), E_INVALIDARG);
    wchar_t* missing[] = {nullptr};
    EXPECT_EQ(dispatch_->GetIDsOfNames(IID_NULL, missing, 1, LOCALE_NEUTRAL, &id), E_INVALIDARG);
    EXPECT_EQ(dispatch_->GetIDsOfNames(IID_NULL, names, 0, LOCALE_NEUTRAL, &id), E_INVALIDARG);
    EXPECT_EQ(dispatch_->GetIDsOfNames(IID_NULL, names, 1, LOCALE_NEUTRAL, nullptr), E_INVALIDARG);
}

TEST_F(AutomationDispatchTest, CallsTheMethodAndGivesItsResultAsANumber) {
    const Outcome outcome = Invoke(NumberVariant(41));
    EXPECT_EQ(outcome.status, S_OK);
    EXPECT_EQ(received_, std::vector<LONG>{41});
    EXPECT_EQ(V_VT(&outcome.result), VT_I4);
    EXPECT_EQ(V_I4(&outcome.result), 42);
}

TEST_F(AutomationDispatchTest, CallsTheMethodForACallerWhoWantsNoResult) {
    EXPECT_EQ(test_support::CallWithNumber(*dispatch_.Get(), 1, 1, nullptr), S_OK);
    EXPECT_EQ(received_, std::vector<LONG>{1});
}

// Scripts call this way: a method, and its value if it has one.
TEST_F(AutomationDispatchTest, CallsTheMethodWhenAPropertyWouldDoToo) {
    EXPECT_EQ(Invoke(NumberVariant(1), 1, DISPATCH_METHOD | DISPATCH_PROPERTYGET).status, S_OK);
    EXPECT_EQ(received_, std::vector<LONG>{1});
}

TEST_F(AutomationDispatchTest, ReadsArgumentsThatConvertToANumber) {
    VARIANT small = NumberVariant(0);
    V_VT(&small) = VT_I2;
    V_I2(&small) = -5;
    EXPECT_EQ(Invoke(small).status, S_OK);

    LONG referenced = 1;
    VARIANT reference = NumberVariant(0);
    V_VT(&reference) = VT_I4 | VT_BYREF;
    V_I4REF(&reference) = &referenced;
    EXPECT_EQ(Invoke(reference).status, S_OK);
    EXPECT_EQ(received_, (std::vector<LONG>{-5, 1}));
}

TEST_F(AutomationDispatchTest, RefusesAnArgumentThatIsNoNumber) {
    VARIANT text = NumberVariant(0);
    V_VT(&text) = VT_BSTR;
    V_BSTR(&text) = SysAllocString(L"yes");
    const Outcome outcome = Invoke(text);
    SysFreeString(V_BSTR(&text));
    EXPECT_EQ(outcome.status, DISP_E_TYPEMISMATCH);
    EXPECT_EQ(outcome.badArgument, 0u);
    EXPECT_TRUE(received_.empty());
    EXPECT_EQ(V_VT(&outcome.result), VT_EMPTY);
}

TEST_F(AutomationDispatchTest, RefusesAnArgumentThatIsNoNumberForACallerWhoDoesNotAskWhich) {
    VARIANT nothing = NumberVariant(0);
    V_VT(&nothing) = VT_NULL;
    DISPPARAMS parameters{&nothing, nullptr, 1, 0};
    EXPECT_EQ(dispatch_->Invoke(1, IID_NULL, LOCALE_NEUTRAL, DISPATCH_METHOD, &parameters, nullptr, nullptr,
                                nullptr),
              DISP_E_TYPEMISMATCH);
    EXPECT_TRUE(received_.empty());
}

TEST_F(AutomationDispatchTest, KnowsNoOtherMembers) {
    for (const DISPID id : std::vector<DISPID>{0, 2, -1, LONG_MAX, LONG_MIN}) {
        EXPECT_EQ(Invoke(NumberVariant(1), id).status, DISP_E_MEMBERNOTFOUND) << id;
    }
    EXPECT_TRUE(received_.empty());
}

TEST_F(AutomationDispatchTest, HasNoProperties) {
    for (const WORD flags :
         std::vector<WORD>{DISPATCH_PROPERTYGET, DISPATCH_PROPERTYPUT, DISPATCH_PROPERTYPUTREF, 0}) {
        EXPECT_EQ(Invoke(NumberVariant(1), 1, flags).status, DISP_E_MEMBERNOTFOUND) << flags;
    }
    EXPECT_TRUE(received_.empty());
}

TEST_F(AutomationDispatchTest, RefusesAnyButOneUnnamedArgument) {
    VARIANT arguments[] = {NumberVariant(1), NumberVariant(1)};
    DISPID name = 0;
    DISPPARAMS none{nullptr, nullptr, 0, 0};
    DISPPARAMS two{arguments, nullptr, 2, 0};
    DISPPARAMS named{arguments, &name, 1, 1};
    DISPPARAMS missing{nullptr, nullptr, 1, 0};
    EXPECT_EQ(InvokeWith(&none).status, DISP_E_BADPARAMCOUNT);
    EXPECT_EQ(InvokeWith(&two).status, DISP_E_BADPARAMCOUNT);
    EXPECT_EQ(InvokeWith(&named).status, DISP_E_BADPARAMCOUNT);
    EXPECT_EQ(InvokeWith(&missing).status, DISP_E_BADPARAMCOUNT);
    EXPECT_EQ(InvokeWith(nullptr).status, DISP_E_BADPARAMCOUNT);
    EXPECT_TRUE(received_.empty());
}

TEST_F(AutomationDispatchTest, RefusesCallsOnceDisconnected) {
    dispatch_->Disconnect();
    const Outcome outcome = Invoke(NumberVariant(1));
    EXPECT_EQ(outcome.status, CO_E_OBJNOTCONNECTED);
    EXPECT_EQ(V_VT(&outcome.result), VT_EMPTY);
    EXPECT_TRUE(received_.empty());
}

TEST_F(AutomationDispatchTest, MapsAnExceptionOfTheMethodToACode) {
    dispatch_ = Target::Make([](LONG) -> LONG { throw std::runtime_error("no"); });
    EXPECT_EQ(Invoke(NumberVariant(1)).status, E_FAIL);
    dispatch_ = Target::Make([](LONG) -> LONG { throw 5; });
    EXPECT_EQ(Invoke(NumberVariant(1)).status, E_FAIL);
    dispatch_ = Target::Make([](LONG) -> LONG { throw std::bad_alloc(); });
    EXPECT_EQ(Invoke(NumberVariant(1)).status, E_OUTOFMEMORY);
}

TEST_F(AutomationDispatchTest, CallsSeveralAtATime) {
    // The inner call would wait for the outer one for ever if calls shut each other out.
    std::optional<HRESULT> inner;
    dispatch_ = Target::Make([this, &inner](LONG value) {
        if (value == 1) {
            inner = std::async(std::launch::async, [this] { return Invoke(NumberVariant(2)).status; }).get();
        }
        return value;
    });
    EXPECT_EQ(Invoke(NumberVariant(1)).status, S_OK);
    EXPECT_EQ(inner, S_OK);
}

// The object's lock is made by its first user, and there may be two of them.
TEST_F(AutomationDispatchTest, TakesItsFirstTwoCallsAtATime) {
    constexpr int kObjects = 150;
    for (int object = 0; object < kObjects; ++object) {
        dispatch_ = Target::Make([](LONG value) { return value; });
        std::atomic<int> ready{0};
        const auto call = [this, &ready] {
            ++ready;
            while (ready < 2) {
                SwitchToThread();
            }
            return Invoke(NumberVariant(1)).status;
        };
        auto other = std::async(std::launch::async, call);
        EXPECT_EQ(call(), S_OK);
        EXPECT_EQ(other.get(), S_OK);
    }
}

}  // namespace
