#include "lab/guest/UsbPath.h"

#include <gtest/gtest.h>

using lab::guest::IsUsbPath;

TEST(UsbPath, IsABusAndPorts) {
    for (const char* const path : {"1-1", "2-15", "1-2.4", "10-1.2.3.4.5", "usb1", "usb12"}) {
        EXPECT_TRUE(IsUsbPath(path)) << path;
    }
}

TEST(UsbPath, IsNothingElse) {
    for (const char* const text :
         {"",       "1",      "1-", "-1", "1-1.",  "1-1..2", "1-1:1.0", "1-0:1.0", "usb", "usb1-1",
          "../1-1", "1-1/..", ".",  "..", "1-1\n", " 1-1",   "1-1234",  "a-1",     "1-a", "USB1"}) {
        EXPECT_FALSE(IsUsbPath(text)) << text;
    }
}
