#include "tests/lab/guest/TemporaryPlaces.h"

#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace fs = std::filesystem;

TemporaryPlaces::TemporaryPlaces() {
    std::string name = fs::temp_directory_path() / "guest-test-XXXXXX";
    if (mkdtemp(name.data()) == nullptr) {
        throw std::runtime_error("no temporary folder");
    }
    root_ = name;
    Write("modules/sets", "boot\nempty\nodd missing.ko\n");
    fs::create_directory(root_ / "files");
}

TemporaryPlaces::~TemporaryPlaces() {
    std::error_code error;
    fs::remove_all(root_, error);
}

lab::guest::Places TemporaryPlaces::Places() const {
    return {
        .sys = root_ / "sys", .dev = root_ / "dev", .modules = root_ / "modules", .files = root_ / "files"};
}

void TemporaryPlaces::Write(const std::string& file, const std::string& content) const {
    fs::create_directories((root_ / file).parent_path());
    std::ofstream(root_ / file, std::ios::binary) << content;
}

void TemporaryPlaces::Link(const std::string& file, const std::string& target) const {
    fs::create_directories((root_ / file).parent_path());
    fs::remove(root_ / file);
    fs::create_symlink(target, root_ / file);
}

void TemporaryPlaces::Remove(const std::string& file) const {
    fs::remove_all(root_ / file);
}

void TemporaryPlaces::AddDevice(const std::string& path, int number) const {
    const std::string folder = "sys/bus/usb/devices/" + path + '/';
    Write(folder + "busnum", "1\n");
    Write(folder + "devnum", std::to_string(number) + "\n");
    Write(folder + "idVendor", "2f1a\n");
    Write(folder + "idProduct", "7e00\n");
    Write(folder + "bcdDevice", "0100\n");
    Write(folder + "version", " 2.00\n");
    Write(folder + "speed", "480\n");
    Write(folder + "bConfigurationValue", "1\n");
    Write(folder + "product", "Camera\n");
    Write(folder + "descriptors", std::string("\x12\x01\x00\x02", 4));
    const std::string interface = folder + path + ":1.0/";
    Write(interface + "bInterfaceNumber", "00\n");
    Write(interface + "bAlternateSetting", " 1\n");
    Write(interface + "bInterfaceClass", "ff\n");
    Write(interface + "bInterfaceSubClass", "01\n");
    Write(interface + "bInterfaceProtocol", "02\n");
    Link(interface + "driver", "../../../../bus/usb/drivers/usbtest");
    Write("dev/bus/usb/001/00" + std::to_string(number), "");
}
