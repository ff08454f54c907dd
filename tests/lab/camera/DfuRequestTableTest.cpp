#include "tests/lab/camera/CameraDriver.h"

#include <gtest/gtest.h>

#include <array>
#include <optional>
#include <string>
#include <vector>

// Every request of the USB DFU 1.1 standard in every state that a personality can be in, each cell a test of
// its own.

namespace lab::test {
namespace {

struct Column {
    const char* name;
    DfuRequest request;
    std::size_t length;
};

constexpr std::array<Column, 8> kColumns{{{"Detach", DfuRequest::Detach, 0},
                                          {"Dnload", DfuRequest::Dnload, 64},
                                          {"EmptyDnload", DfuRequest::Dnload, 0},
                                          {"Upload", DfuRequest::Upload, 64},
                                          {"GetStatus", DfuRequest::GetStatus, 6},
                                          {"ClrStatus", DfuRequest::ClrStatus, 0},
                                          {"GetState", DfuRequest::GetState, 1},
                                          {"Abort", DfuRequest::Abort, 0}}};

// The state that an accepted request leads to; empty when it stalls.
using Next = std::optional<DfuState>;

struct Row {
    Personality personality;
    DfuState state;
    std::array<Next, 8> next;
};

std::vector<Row> Table() {
    using enum DfuState;
    constexpr Next no;
    constexpr auto kv400 = Personality::Kv400;
    constexpr auto strict = Personality::Strict;
    constexpr auto lenient = Personality::Lenient;
    constexpr auto synchronous = Personality::Synchronous;
    // clang-format off
    return {
        // personality, state         DETACH             DNLOAD      empty         UPLOAD      GETSTATUS          CLRSTATUS GETSTATE       ABORT
        {strict, AppIdle,           {AppDetach,         no,         no,           no,         AppIdle,           no,      AppIdle,           no}},
        {strict, AppDetach,         {no,                no,         no,           no,         AppDetach,         no,      AppDetach,         no}},
        {strict, DfuIdle,           {no,                DnloadSync, no,           UploadIdle, DfuIdle,           no,      DfuIdle,           DfuIdle}},
        {strict, DnloadSync,        {no,                no,         no,           no,         DnBusy,            no,      DnloadSync,        DfuIdle}},
        {strict, DnBusy,            {no,                no,         no,           no,         no,                no,      no,                no}},
        {strict, DnloadIdle,        {no,                DnloadSync, ManifestSync, no,         DnloadIdle,        no,      DnloadIdle,        DfuIdle}},
        {strict, ManifestSync,      {no,                no,         no,           no,         Manifest,          no,      ManifestSync,      DfuIdle}},
        {strict, Manifest,          {no,                no,         no,           no,         no,                no,      no,                no}},
        {strict, ManifestWaitReset, {no,                no,         no,           no,         no,                no,      no,                no}},
        {strict, UploadIdle,        {no,                no,         no,           UploadIdle, UploadIdle,        no,      UploadIdle,        DfuIdle}},
        {strict, Error,             {no,                no,         no,           no,         Error,             DfuIdle, Error,             no}},

        // The KV400 itself has no DFU interface while it runs its firmware.
        {kv400, AppIdle,            {no,                no,         no,           no,         no,                no,      no,                no}},
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

CameraDriver Bring(const Row& row) {
    return InState(row.state, {.personality = row.personality, .blockMs = 100});
}

bool IsRunning(const Row& row) {
    return row.state == DfuState::AppIdle || row.state == DfuState::AppDetach;
}

DfuState StateAfterRefusal(const Row& row) {
    if (IsRunning(row)) {
        return DfuState::AppIdle;
    }
    return row.personality == Personality::Lenient ? row.state : DfuState::Error;
}

DfuStatus StatusAfterRefusal(const Row& row, const Column& column) {
    if (row.state == DfuState::Error) {
        return DfuStatus::ErrFirmware;
    }
    if (IsRunning(row) || row.personality == Personality::Lenient) {
        return DfuStatus::Ok;
    }
    const bool isEmptyFirst =
        column.request == DfuRequest::Dnload && column.length == 0 && row.state == DfuState::DfuIdle;
    return isEmptyFirst ? DfuStatus::ErrNotDone : DfuStatus::ErrStalledPkt;
}

std::string TitleOf(const Row& row) {
    return NameOf(row.personality) + NameOf(row.state);
}

struct Cell {
    Row row;
    std::size_t column;
};

std::vector<Cell> Cells() {
    std::vector<Cell> cells;
    for (const Row& row : Table()) {
        for (std::size_t column = 0; column < kColumns.size(); ++column) {
            cells.push_back({row, column});
        }
    }
    return cells;
}

class DfuRequestTable : public testing::TestWithParam<Cell> {};

TEST_P(DfuRequestTable, LeadsWhereTheTableSays) {
    const Row& row = GetParam().row;
    const Column& column = kColumns[GetParam().column];
    CameraDriver driver = Bring(row);
    std::vector<std::uint8_t> data(column.length);

    const TransferResult result = driver.Request(column.request, 1, data);

    EXPECT_EQ(driver.camera.Mode(), IsRunning(row) ? BusMode::Running : BusMode::Dfu);
    const Next& next = row.next[GetParam().column];
    if (!next) {
        EXPECT_EQ(result.end, TransferEnd::Stall);
        EXPECT_EQ(result.transferred, 0U);
        EXPECT_EQ(driver.camera.State(), StateAfterRefusal(row));
        EXPECT_EQ(driver.camera.Status(), StatusAfterRefusal(row, column));
        return;
    }
    EXPECT_EQ(result.end, TransferEnd::Ok);
    EXPECT_EQ(result.transferred, column.length);
    EXPECT_EQ(driver.camera.State(), *next);
    if (column.request == DfuRequest::GetStatus) {
        EXPECT_EQ(DfuState{data[4]}, *next);
        EXPECT_EQ(DfuStatus{data[0]}, row.state == DfuState::Error ? DfuStatus::ErrFirmware : DfuStatus::Ok);
    }
    if (column.request == DfuRequest::GetState) {
        EXPECT_EQ(DfuState{data[0]}, *next);
    }
}

INSTANTIATE_TEST_SUITE_P(All, DfuRequestTable, testing::ValuesIn(Cells()),
                         [](const testing::TestParamInfo<Cell>& instance) {
                             return TitleOf(instance.param.row) + "_" + kColumns[instance.param.column].name;
                         });

class DfuStrangers : public testing::TestWithParam<Row> {};

// What the standard calls any unsupported request: an unknown number, or a known one in the wrong direction.
TEST_P(DfuStrangers, AreRefused) {
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

INSTANTIATE_TEST_SUITE_P(All, DfuStrangers, testing::ValuesIn(Table()),
                         [](const testing::TestParamInfo<Row>& instance) { return TitleOf(instance.param); });

}  // namespace
}  // namespace lab::test
