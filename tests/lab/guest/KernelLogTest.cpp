#include "lab/guest/KernelLog.h"

#include <gtest/gtest.h>

using lab::guest::ParseKernelRecord;

TEST(KernelLog, ReadsARecord) {
    const auto record = ParseKernelRecord("4,339,5140900,-;usb 1-1: device descriptor read/64, error -71\n");
    ASSERT_TRUE(record.has_value());
    EXPECT_EQ(record->level, 4U);
    EXPECT_EQ(record->number, 339U);
    EXPECT_EQ(record->microseconds, 5'140'900U);
    EXPECT_EQ(record->text, "usb 1-1: device descriptor read/64, error -71");
}

TEST(KernelLog, LeavesTheFacilityAndWhatFollowsTheLineOut) {
    const auto record =
        ParseKernelRecord("30,1,2,c,more;text; of a program\n SUBSYSTEM=usb\n DEVICE=+usb:1-1\n");
    ASSERT_TRUE(record.has_value());
    EXPECT_EQ(record->level, 6U);
    EXPECT_EQ(record->text, "text; of a program");
}

TEST(KernelLog, TakesALineWithoutItsEnd) {
    const auto record = ParseKernelRecord("6,1,2,-;");
    ASSERT_TRUE(record.has_value());
    EXPECT_EQ(record->text, "");
}

TEST(KernelLog, IsNothingElse) {
    for (const char* const text : {"", "6", "6,1", "6,1,2", "6,1,2,-", ";text", "a,1,2,-;text", "6,,2,-;text",
                                   "6,1,-2,-;text", "6 1 2;text"}) {
        EXPECT_FALSE(ParseKernelRecord(text).has_value()) << text;
    }
}
