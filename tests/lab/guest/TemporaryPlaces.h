#pragma once

#include <filesystem>
#include <string>

#include "lab/guest/Places.h"

// Folders that stand in for those of the kernel's, empty at first and removed in the end.
class TemporaryPlaces {
  public:
    TemporaryPlaces();
    ~TemporaryPlaces();
    TemporaryPlaces(const TemporaryPlaces&) = delete;
    TemporaryPlaces& operator=(const TemporaryPlaces&) = delete;

    [[nodiscard]] lab::guest::Places Places() const;

    // Writes a file, and makes the folders above it: "sys/bus/usb/devices/1-1/speed".
    void Write(const std::string& file, const std::string& content) const;
    // Makes a link, or another one: what it leads to need not be there.
    void Link(const std::string& file, const std::string& target) const;
    void Remove(const std::string& file) const;

    // A configured USB device with one vendor interface, bound to the driver "usbtest", and its usbfs node.
    void AddDevice(const std::string& path, int number = 2) const;

  private:
    std::filesystem::path root_;
};
