#include "ImportTable.h"

#include <map>
#include <stdexcept>
#include <string>

namespace host {
namespace {

std::map<std::string, void**>& Entries() {
    static std::map<std::string, void**> entries;
    return entries;
}

}  // namespace

void ImportTable::Add(const char* name, void** entry) {
    Entries()[name] = entry;
}

void** ImportTable::Find(const char* name) {
    const auto found = Entries().find(name);
    if (found == Entries().end()) {
        throw std::runtime_error(std::string("the host has no function ") + name);
    }
    return found->second;
}

}  // namespace host
