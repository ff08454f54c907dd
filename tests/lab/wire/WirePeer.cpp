#include "tests/lab/wire/WirePeer.h"

#include <stdexcept>

#include <nlohmann/json.hpp>

namespace {

using nlohmann::json;

constexpr wchar_t kLaboratoryKey[] = L"SOFTWARE\\VeyraLaboratory";

SOCKET Listen() {
    WSADATA data{};
    if (WSAStartup(MAKEWORD(2, 2), &data) != 0) {
        throw std::runtime_error("WSAStartup failed");
    }
    const SOCKET listener = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (listener == INVALID_SOCKET ||
        bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(listener, 1) != 0) {
        throw std::runtime_error("no port to listen on");
    }
    return listener;
}

DWORD PortOf(SOCKET listener) {
    sockaddr_in address{};
    int size = sizeof address;
    getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.sin_port);
}

void SendLine(SOCKET connection, const json& message) {
    const std::string line = message.dump() + '\n';
    send(connection, line.data(), static_cast<int>(line.size()), 0);
}

}  // namespace

WirePeer::WirePeer() : listener_(Listen()) {
    const DWORD port = PortOf(listener_);
    RegSetKeyValueW(HKEY_LOCAL_MACHINE, kLaboratoryKey, L"Port", REG_DWORD, &port, sizeof port);
    thread_ = std::thread([this] { Run(); });
}

WirePeer::~WirePeer() {
    RegDeleteKeyW(HKEY_LOCAL_MACHINE, kLaboratoryKey);
    closesocket(listener_);
    Close();
    thread_.join();
}

json WirePeer::NextEvent(std::chrono::milliseconds patience) {
    std::unique_lock lock(mutex_);
    if (!changed_.wait_for(lock, patience, [this] { return !lines_.empty(); })) {
        return nullptr;
    }
    json event = json::parse(lines_.front());
    lines_.pop();
    return event;
}

void WirePeer::Send(const json& command) {
    const std::lock_guard lock(mutex_);
    SendLine(connection_, command);
}

void WirePeer::Close() {
    const std::lock_guard lock(mutex_);
    if (connection_ != INVALID_SOCKET) {
        shutdown(connection_, SD_BOTH);
    }
}

void WirePeer::Run() {
    const SOCKET connection = accept(listener_, nullptr, nullptr);
    if (connection == INVALID_SOCKET) {
        return;
    }
    {
        const std::lock_guard lock(mutex_);
        connection_ = connection;
    }
    SendLine(connection, {{"reply", "stage"}});
    std::string received;
    char buffer[4096];
    for (int count = 0; (count = recv(connection, buffer, sizeof buffer, 0)) > 0;) {
        received.append(buffer, static_cast<std::size_t>(count));
        TakeLines(received);
    }
    const std::lock_guard lock(mutex_);
    connection_ = INVALID_SOCKET;
    closesocket(connection);
}

void WirePeer::TakeLines(std::string& received) {
    const std::lock_guard lock(mutex_);
    for (std::size_t end = 0; (end = received.find('\n')) != std::string::npos; received.erase(0, end + 1)) {
        lines_.push(received.substr(0, end));
    }
    changed_.notify_all();
}
