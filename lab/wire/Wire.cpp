#include "lab/wire/Wire.h"

#include <windows.h>
#include <ws2tcpip.h>

#include <exception>
#include <optional>
#include <utility>

#include <nlohmann/json.hpp>

#include "lab/wire/Utf8.h"

namespace lab {
namespace {

using nlohmann::json;

constexpr wchar_t kRegistryKey[] = L"SOFTWARE\\VeyraLaboratory";
constexpr wchar_t kPortValue[] = L"Port";
constexpr DWORD kStageTimeoutMs = 5000;
constexpr std::size_t kMaximumLine = 16 * 1024 * 1024;

std::optional<u_short> ReadPort() {
    DWORD port = 0;
    DWORD size = sizeof port;
    const LSTATUS status =
        RegGetValueW(HKEY_LOCAL_MACHINE, kRegistryKey, kPortValue, RRF_RT_REG_DWORD, nullptr, &port, &size);
    if (status != ERROR_SUCCESS || port == 0 || port > 0xFFFF) {
        return std::nullopt;
    }
    return static_cast<u_short>(port);
}

SOCKET ConnectTo(u_short port) {
    WSADATA data{};
    if (WSAStartup(MAKEWORD(2, 2), &data) != 0) {
        return INVALID_SOCKET;
    }
    const SOCKET connection = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    if (connection == INVALID_SOCKET) {
        return INVALID_SOCKET;
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(connection, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        closesocket(connection);
        return INVALID_SOCKET;
    }
    const BOOL noDelay = TRUE;
    setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&noDelay), sizeof noDelay);
    return connection;
}

void SetReceiveTimeout(SOCKET connection, DWORD milliseconds) {
    setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, reinterpret_cast<const char*>(&milliseconds),
               sizeof milliseconds);
}

bool IsStage(const json& answer) {
    const auto reply = answer.is_object() ? answer.find("reply") : answer.end();
    return answer.is_object() && reply != answer.end() && *reply == "stage";
}

}  // namespace

std::unique_ptr<Wire> Wire::Connect(std::string_view source) {
    const auto port = ReadPort();
    if (!port) {
        return nullptr;
    }
    const SOCKET connection = ConnectTo(*port);
    if (connection == INVALID_SOCKET) {
        return nullptr;
    }
    std::unique_ptr<Wire> wire(new Wire(connection, source));
    return IsStage(*wire->stage_) ? std::move(wire) : nullptr;
}

Wire::Wire(SOCKET socket, std::string_view source) : socket_(socket), stage_(std::make_unique<json>()) {
    Send({{"event", "hello"},
          {"source", source},
          {"pid", GetCurrentProcessId()},
          {"command_line", Utf8(GetCommandLineW())}});
    SetReceiveTimeout(socket_, kStageTimeoutMs);
    std::string line;
    if (ReadLine(line)) {
        *stage_ = json::parse(line, nullptr, false);
    }
    SetReceiveTimeout(socket_, 0);
}

Wire::~Wire() {
    {
        const std::lock_guard lock(endMutex_);
        ending_ = true;
    }
    shutdown(socket_, SD_BOTH);
    if (reader_.joinable()) {
        reader_.join();
    }
    closesocket(socket_);
}

void Wire::Start(CommandHandler onCommand, ClosedHandler onClosed) {
    onCommand_ = std::move(onCommand);
    onClosed_ = std::move(onClosed);
    reader_ = std::thread(&Wire::ReadCommands, this);
}

bool Wire::Send(const json& message) {
    std::string line = message.dump(-1, ' ', false, json::error_handler_t::replace);
    line += '\n';
    const std::lock_guard lock(sendMutex_);
    std::size_t sent = 0;
    while (sent < line.size()) {
        const int count = send(socket_, line.data() + sent, static_cast<int>(line.size() - sent), 0);
        if (count <= 0) {
            return false;
        }
        sent += static_cast<std::size_t>(count);
    }
    return true;
}

bool Wire::ReadLine(std::string& line) {
    std::size_t searched = 0;
    for (;;) {
        const std::size_t end = received_.find('\n', searched);
        if (end != std::string::npos) {
            line = received_.substr(0, end);
            received_.erase(0, end + 1);
            return true;
        }
        searched = received_.size();
        char buffer[4096];
        const int count = recv(socket_, buffer, sizeof buffer, 0);
        if (count <= 0 || received_.size() > kMaximumLine) {
            return false;
        }
        received_.append(buffer, static_cast<std::size_t>(count));
    }
}

void Wire::ReadCommands() {
    std::string line;
    while (ReadLine(line)) {
        const json command = json::parse(line, nullptr, false);
        if (command.is_object()) {
            HandOn(command);
        } else {
            Send(RefusedEvent("", "not a JSON object"));
        }
    }
    bool ending = false;
    {
        const std::lock_guard lock(endMutex_);
        ending = ending_;
    }
    if (!ending) {
        onClosed_();
    }
}

void Wire::HandOn(const json& command) {
    try {
        onCommand_(command);
    } catch (const std::exception& error) {
        const auto name = command.find("command");
        Send(RefusedEvent(name != command.end() && name->is_string() ? name->get<std::string>() : "",
                          error.what()));
    }
}

}  // namespace lab
