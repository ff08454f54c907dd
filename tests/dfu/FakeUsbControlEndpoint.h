#pragma once

#include "usb_core/IUsbControlEndpoint.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <vector>

// The control endpoint of a camera in DFU mode that takes every download, as long as a test does not say
// otherwise. Writes an interface number into every packet, as the real endpoint does.
class FakeUsbControlEndpoint final : public usb_core::IUsbControlEndpoint {
  public:
    // What a GETSTATUS answers. When it does not write, the caller's buffer stays as it was.
    struct StatusAnswer {
        HRESULT result = S_OK;
        std::uint8_t bStatus = 0;
        std::uint8_t bState = 0;
        bool writes = true;
        std::uint32_t bwPollTimeout = 0;
    };

    explicit FakeUsbControlEndpoint(std::uint16_t maxTransferSize) : maxTransferSize_(maxTransferSize) {}

    // The request fails with this status `count` times, after `skip` that do as usual; it has no effect then.
    void FailRequest(std::uint8_t request, HRESULT result, std::size_t skip = 0, std::size_t count = 1);
    // The answers to the next GETSTATE requests; when they are used up, or with none, dfuIDLE.
    void AnswerGetState(std::deque<std::uint8_t> states) { getStateAnswers_ = std::move(states); }
    // GETSTATE succeeds and writes nothing.
    void LeaveGetStateUnwritten() { writesGetState_ = false; }
    // Every GETSTATUS asks this.
    void AnswerGetStatus(std::function<StatusAnswer()> answer) { getStatus_ = std::move(answer); }
    // Runs at the start of every transfer.
    void BeforeEachTransfer(std::function<void()> action) { beforeTransfer_ = std::move(action); }
    void FillUploadsWith(std::uint8_t byte) { uploadByte_ = byte; }

    // One line a request, in order: request type, request, value, index, length in hex, then the data: what
    // was sent, or the number of bytes asked for and, in brackets, what the buffer held when the request
    // came.
    //   21 01 0000 0000 0004 out 01 02 03 04
    //   A1 03 0000 0000 0006 in 6 [0E 00 00 00 0A 00]
    //   21 00 03E8 0000 0000 none
    [[nodiscard]] const std::vector<std::string>& Requests() const { return requests_; }
    // How many of the requests have this bRequest.
    [[nodiscard]] std::size_t CountOf(std::uint8_t request) const;
    // The data of all blocks taken, one behind the other, and the wValue of each DNLOAD that was sent.
    [[nodiscard]] const std::vector<std::uint8_t>& Downloaded() const { return downloaded_; }
    [[nodiscard]] const std::vector<std::uint16_t>& BlockNumbers() const { return blockNumbers_; }

    HRESULT Transfer(WINUSB_SETUP_PACKET& packet, PUCHAR buffer, std::size_t length) override;
    [[nodiscard]] bool IsConnected() const override { return connected_; }
    void Disconnect() override { connected_ = false; }
    [[nodiscard]] std::uint16_t GetMaxTransferSize() const override { return maxTransferSize_; }

  private:
    struct Failure {
        std::uint8_t request;
        HRESULT result;
        std::size_t skip;
        std::size_t count;
    };

    void Record(const WINUSB_SETUP_PACKET& packet, const UCHAR* buffer, std::size_t length);
    [[nodiscard]] HRESULT TakeFailure(std::uint8_t request);
    [[nodiscard]] HRESULT GetStatus(PUCHAR buffer);
    void GetState(PUCHAR buffer);

    std::uint16_t maxTransferSize_;
    bool connected_ = true;
    std::vector<Failure> failures_;
    std::deque<std::uint8_t> getStateAnswers_;
    bool writesGetState_ = true;
    std::function<StatusAnswer()> getStatus_;
    std::function<void()> beforeTransfer_;
    std::uint8_t uploadByte_ = 0;
    std::uint8_t state_ = 2;
    std::vector<std::string> requests_;
    std::vector<std::uint8_t> requestNumbers_;
    std::vector<std::uint8_t> downloaded_;
    std::vector<std::uint16_t> blockNumbers_;
};
