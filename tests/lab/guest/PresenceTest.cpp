#include "lab/guest/Presence.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include <nlohmann/json.hpp>

using lab::guest::PresenceEvent;
using lab::guest::Uevent;
using nlohmann::json;

namespace {

Uevent DeviceUevent() {
    return {{{"ACTION", "add"},
             {"DEVPATH", "/devices/pci0000:00/0000:00:03.0/usb1/1-2/1-2.4"},
             {"SUBSYSTEM", "usb"},
             {"DEVTYPE", "usb_device"},
             {"PRODUCT", "2f1a/7e1/100"},
             {"BUSNUM", "001"},
             {"DEVNUM", "012"}}};
}

Uevent With(const std::string& key, const std::string& text) {
    Uevent uevent = DeviceUevent();
    uevent.fields[key] = text;
    return uevent;
}

std::string ChangeOf(const Uevent& uevent) {
    const auto event = PresenceEvent(uevent);
    return event ? event->at("change").get<std::string>() : "none";
}

}  // namespace

TEST(Presence, TellsADeviceThatArrives) {
    EXPECT_EQ(PresenceEvent(DeviceUevent()), (json{{"event", "device"},
                                                   {"change", "arrival"},
                                                   {"path", "1-2.4"},
                                                   {"vendor", "2f1a"},
                                                   {"product", "07e1"},
                                                   {"bus", 1},
                                                   {"number", 12}}));
}

TEST(Presence, TellsWhenItIsReadyAndWhenItIsGone) {
    EXPECT_EQ(ChangeOf(With("ACTION", "bind")), "ready");
    EXPECT_EQ(ChangeOf(With("ACTION", "remove")), "removal");
}

TEST(Presence, IsSilentAboutEverythingElse) {
    EXPECT_EQ(ChangeOf(With("ACTION", "change")), "none");
    EXPECT_EQ(ChangeOf(With("ACTION", "unbind")), "none");
    EXPECT_EQ(ChangeOf(With("DEVTYPE", "usb_interface")), "none");
    EXPECT_EQ(ChangeOf(Uevent{}), "none");
}

TEST(Presence, IsSilentAboutWhatTheKernelDoesNotWrite) {
    const std::pair<const char*, const char*> kOddities[] = {
        {"PRODUCT", ""},
        {"PRODUCT", "2f1a"},
        {"PRODUCT", "2f1a/7e00"},
        {"PRODUCT", "2f1g/7e00/100"},
        {"PRODUCT", "12f1a/7e/1"},
        {"PRODUCT", "//"},
        {"BUSNUM", ""},
        {"BUSNUM", "1x"},
        {"DEVNUM", "-1"},
        {"DEVPATH", ""},
        {"DEVPATH", "/devices/.."},
        {"DEVPATH", "/devices/1-2/"},
    };
    for (const auto& [key, text] : kOddities) {
        EXPECT_EQ(ChangeOf(With(key, text)), "none") << key << '=' << text;
    }
}
