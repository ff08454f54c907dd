#pragma once

#include <winsock2.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <queue>
#include <string>
#include <thread>

#include <nlohmann/json_fwd.hpp>

// The laboratory's side of the wire for one connection: listens on a port of its own, leaves the port in the
// registry, answers the hello with an empty stage and keeps the events that follow.
class WirePeer {
  public:
    WirePeer();
    // Closes the connection and takes the port out of the registry.
    ~WirePeer();

    WirePeer(const WirePeer&) = delete;
    WirePeer& operator=(const WirePeer&) = delete;

    // The next event in the order of arrival, the hello first. Null (of JSON) when none comes in time.
    [[nodiscard]] nlohmann::json NextEvent(std::chrono::milliseconds patience = std::chrono::seconds(10));

    void Send(const nlohmann::json& command);

    // Ends the connection from this side.
    void Close();

  private:
    void Run();
    void TakeLines(std::string& received);

    SOCKET listener_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::queue<std::string> lines_;
    SOCKET connection_ = INVALID_SOCKET;
    std::thread thread_;
};
