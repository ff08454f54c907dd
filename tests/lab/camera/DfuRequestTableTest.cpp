#include "tests/lab/camera/CameraDriver.h"

#include <gtest/gtest.h>

#include <array>
#include <optional>
#include <string>
#include <vector>

// Every request of the USB DFU 1.1 standard in every state of DFU mode, for every personality.

namespace lab::test {
namespace {

struct Column {
    const char* name;
    DfuRequest request;
    std::size_t length;
};

constexpr std::array<Column, 8> kColumns{{{"DETACH", DfuRequest::Detach, 0},
                                          {"DNLOAD of a block", DfuRequest::Dnload, 64},
                                          {"DNLOAD, empty", DfuRequest::Dnload, 0},
                                          {"UPLOAD", DfuRequest::Upload, 64},
                                          {"GETSTATUS", DfuRequest::GetStatus, 6},
                                          {"CLRSTATUS", DfuRequest::ClrStatus, 0},
                                          {"GETSTATE", DfuRequest::GetState, 1},
                                          {"ABORT", DfuRequest::Abort, 0}}};

// The state that an accepted request leads to; empty when it stalls.
using Cell = std::optional<DfuState>;

struct Row {
    Personality personality;
    DfuState state;
    std::array<Cell, 8> next;
};

std::vector<Row> Table() {
    using enum DfuState;
    constexpr Cell no;
    constexpr auto kv400 = Personality::Kv400;
    constexpr auto strict = Personality::Strict;
    constexpr auto lenient = Personality::Lenient;
    constexpr auto synchronous = Personality::Synchronous;
    // clang-format off
    return {
        // personality, state         DETACH             DNLOAD      empty         UPLOAD      GETSTATUS          CLRSTATUS GETSTATE       ABORT
        {strict, DfuIdle,           {no,                DnloadSync, no,           UploadIdle, DfuIdle,           no,      DfuIdle,           DfuIdle}},
        {strict, DnloadSync,        {no,                no,         no,           no,         DnBusy,            no,      DnloadSync,        DfuIdle}},
        {strict, DnBusy,            {no,                no,         no,           no,         no,                no,      no,                no}},
        {strict, DnloadIdle,        {no,                DnloadSync, ManifestSync, no,         DnloadIdle,        no,      DnloadIdle,        DfuIdle}},
        {strict, ManifestSync,      {no,                no,         no,           no,         Manifest,          no,      ManifestSync,      DfuIdle}},
        {strict, Manifest,          {no,                no,         no,           no,         no,                no,      no,                no}},
        {strict, ManifestWaitReset, {no,                no,         no,           no,         no,                no,      no,                no}},
        {strict, UploadIdle,        {no,                no,         no,           UploadIdle, UploadIdle,        no,      UploadIdle,        DfuIdle}},
        {strict, Error,             {no,                no,         no,           no,         Error,             DfuIdle, Error,             no}},

        {kv400, DfuIdle,            {DfuIdle,           DnloadSync, no,           DfuIdle,    DfuIdle,           no,      DfuIdle,           DfuIdle}},
        {kv400, DnloadSync,         {DnloadSync,        no,         no,           no,         DnBusy,            no,      DnloadSync,        DfuIdle}},
        {kv400, DnBusy,             {DnBusy,            no,         no,           no,         DnBusy,            no,      DnBusy,            no}},
        {kv400, DnloadIdle,         {DnloadIdle,        DnloadSync, ManifestSync, no,         DnloadIdle,        no,      DnloadIdle,        DfuIdle}},
        {kv400, ManifestSync,       {ManifestSync,      no,         no,           no,         Manifest,          no,      ManifestSync,      DfuIdle}},
        {kv400, Manifest,           {Manifest,          no,         no,           no,         Manifest,          no,      Manifest,          no}},
        {kv400, ManifestWaitReset,  {ManifestWaitReset, no,         no,           no,         ManifestWaitReset, no,      ManifestWaitReset, no}},
        {kv400, Error,              {Error,             no,         no,           no,         Error,             DfuIdle, Error,             no}},

        {lenient, DfuIdle,          {no,                DnloadSync, no,           UploadIdle, DfuIdle,           no,      DfuIdle,           DfuIdle}},
        {lenient, DnloadSync,       {no,                no,         no,           no,         DnBusy,            no,      DnloadSync,        DfuIdle}},
        {lenient, DnBusy,           {no,                no,         no,           no,         DnBusy,            no,      DnBusy,            no}},
        {lenient, DnloadIdle,       {no,                DnloadSync, ManifestSync, no,         DnloadIdle,        no,      DnloadIdle,        DfuIdle}},
        {lenient, ManifestSync,     {no,                no,         no,           no,         Manifest,          no,      ManifestSync,      DfuIdle}},
        {lenient, Manifest,         {no,                no,         no,           no,         no,                no,      no,                no}},
        {lenient, ManifestWaitReset, {no,               no,         no,           no,         no,                no,      no,                no}},
        {lenient, UploadIdle,       {no,                no,         no,           UploadIdle, UploadIdle,        no,      UploadIdle,        DfuIdle}},
        {lenient, Error,            {no,                no,         no,           no,         Error,             DfuIdle, Error,             no}},

        {synchronous, DfuIdle,      {no,                DnloadSync, no,           UploadIdle, DfuIdle,           no,      DfuIdle,           DfuIdle}},
        {synchronous, DnloadSync,   {no,                no,         no,           no,         DnloadIdle,        no,      DnloadSync,        DfuIdle}},
        {synchronous, DnloadIdle,   {no,                DnloadSync, ManifestSync, no,         DnloadIdle,        no,      DnloadIdle,        DfuIdle}},
        {synchronous, ManifestSync, {no,                no,         no,           no,         Manifest,          no,      ManifestSync,      DfuIdle}},
        {synchronous, Manifest,     {no,                no,         no,           no,         no,                no,      no,                no}},
        {synchronous, UploadIdle,   {no,                no,         no,           UploadIdle, UploadIdle,        no,      UploadIdle,        DfuIdle}},
        {synchronous, Error,        {no,                no,         no,           no,         Error,             DfuIdle, Error,             no}},
    };
    // clang-format on
}

class DfuRequestTable : public testing::TestWithParam<Row> {
  protected:
    static CameraDriver Bring(const Row& row) {
        CameraSettings settings;
        settings.personality = row.personality;
        settings.blockMs = 100;
        CameraDriver driver(settings);
        driver.Reach(row.state);
        EXPECT_EQ(driver.camera.Mode(), BusMode::Dfu);
        EXPECT_EQ(driver.camera.State(), row.state);
        return driver;
    }

    static DfuState StateAfterRefusal(const Row& row) {
        return row.personality == Personality::Lenient ? row.state : DfuState::Error;
    }

    static DfuStatus StatusAfterRefusal(const Row& row, const Column& column) {
        if (row.state == DfuState::Error) {
            return DfuStatus::ErrFirmware;
        }
        if (row.personality == Personality::Lenient) {
            return DfuStatus::Ok;
        }
        const bool isEmptyFirst =
            column.request == DfuRequest::Dnload && column.length == 0 && row.state == DfuState::DfuIdle;
        return isEmptyFirst ? DfuStatus::ErrNotDone : DfuStatus::ErrStalledPkt;
    }
};

TEST_P(DfuRequestTable, LeadsWhereTheTableSays) {
    const Row& row = GetParam();
    for (std::size_t index = 0; index < kColumns.size(); ++index) {
        const Column& column = kColumns[index];
        SCOPED_TRACE(column.name);
        CameraDriver driver = Bring(row);
        std::vector<std::uint8_t> data(column.length);

        const TransferResult result = driver.Request(column.request, 1, data);

        ASSERT_EQ(driver.camera.Mode(), BusMode::Dfu);
        if (const Cell& next = row.next[index]) {
            EXPECT_EQ(result.end, TransferEnd::Ok);
            EXPECT_EQ(result.transferred, column.length);
            EXPECT_EQ(driver.camera.State(), *next);
        } else {
            EXPECT_EQ(result.end, TransferEnd::Stall);
            EXPECT_EQ(result.transferred, 0U);
            EXPECT_EQ(driver.camera.State(), StateAfterRefusal(row));
            EXPECT_EQ(driver.camera.Status(), StatusAfterRefusal(row, column));
        }
    }
}

TEST_P(DfuRequestTable, RepliesTellTheStateThatTheRequestLedTo) {
    const Row& row = GetParam();
    if (const Cell& next = row.next[4]) {
        const StatusReply reply = Bring(row).GetStatus();
        EXPECT_EQ(reply.transferred, 6U);
        EXPECT_EQ(reply.state, *next);
        EXPECT_EQ(reply.status, row.state == DfuState::Error ? DfuStatus::ErrFirmware : DfuStatus::Ok);
    }
    if (const Cell& next = row.next[6]) {
        EXPECT_EQ(Bring(row).GetState(), *next);
    }
}

// What the standard calls any unsupported request: an unknown number, or a known one in the wrong direction.
TEST_P(DfuRequestTable, RefusesWhatIsNoRequestOfTheStandard) {
    const Row& row = GetParam();
    const std::vector<SetupPacket> strangers{{.requestType = 0x21, .request = 7},
                                             {.requestType = 0xA1, .request = 255, .length = 6},
                                             {.requestType = 0x21, .request = 3, .length = 6},
                                             {.requestType = 0x21, .request = 2, .length = 6},
                                             {.requestType = 0xA1, .request = 1, .length = 6},
                                             {.requestType = 0xA1, .request = 0}};
    for (const SetupPacket& setup : strangers) {
        SCOPED_TRACE(testing::Message()
                     << "type " << int{setup.requestType} << " request " << int{setup.request});
        CameraDriver driver = Bring(row);
        std::array<std::uint8_t, 6> data{};

        EXPECT_EQ(driver.camera.ControlTransfer(setup, data, driver.nowMs).end, TransferEnd::Stall);

        EXPECT_EQ(driver.camera.State(), StateAfterRefusal(row));
    }
}

INSTANTIATE_TEST_SUITE_P(All, DfuRequestTable, testing::ValuesIn(Table()),
                         [](const testing::TestParamInfo<Row>& instance) {
                             return NameOf(instance.param.personality) + NameOf(instance.param.state);
                         });

}  // namespace
}  // namespace lab::test
