#include "toast/program/RecordedAnswers.h"

#include <gtest/gtest.h>

#include "tests/toast/conversation/RecordingListener.h"
#include "tests/toast/server/TestSink.h"

namespace toast {
namespace {

using Microsoft::WRL::ComPtr;
using Words = std::vector<std::string>;

TEST(RecordedAnswers, HaveEverythingRecorded) {
    RecordingListener record;
    ClientList clients;
    RecordedAnswers answers(record, clients);
    answers.Asked({L"1", L"2"});
    answers.Replaced({L"1", L"2"});
    answers.Lapsed({L"1", L"2"});
    answers.Answered(0, {7});
    answers.Started(118);
    answers.Ended(Ending::kStopped, 37, 118);
    EXPECT_EQ(record.Heard(), (Words{"asked 1 to 2", "replaced 1 to 2", "lapsed 1 to 2", "answered 0 to 7",
                                     "started 118", "ended 2 37 of 118"}));
}

TEST(RecordedAnswers, FireAtWhoAsked) {
    RecordingListener record;
    ClientList clients;
    RecordedAnswers answers(record, clients);
    const auto sinks = std::make_shared<AdvisedSinks>([] { return std::vector<ComPtr<IUnknown>>(); });
    const ComPtr<TestSink> sink(new TestSink);
    static_cast<void>(sinks->Add(sink.Get()));
    answers.Answered(1, {clients.Add(sinks)});
    EXPECT_EQ(sink->Fired(1), std::vector<LONG>{1});
}

}  // namespace
}  // namespace toast
