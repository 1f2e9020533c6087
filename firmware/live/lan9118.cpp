#include "lan9118.h"

#include <cstring>

#include "board.h"

namespace
{

// Offsets of the registers.
constexpr uint32_t kRxData = 0x00;
constexpr uint32_t kTxData = 0x20;
constexpr uint32_t kRxStatus = 0x40;
constexpr uint32_t kTxStatus = 0x48;
constexpr uint32_t kInterruptConfig = 0x54;
constexpr uint32_t kInterruptStatus = 0x58;
constexpr uint32_t kInterruptEnable = 0x5C;
constexpr uint32_t kByteTest = 0x64;
constexpr uint32_t kFifoInterrupt = 0x68;
constexpr uint32_t kTxConfig = 0x70;
constexpr uint32_t kHardwareConfig = 0x74;
constexpr uint32_t kRxFifo = 0x7C;
constexpr uint32_t kTxFifo = 0x80;
constexpr uint32_t kMacCommand = 0xA4;
constexpr uint32_t kMacData = 0xA8;

constexpr uint32_t kInterruptOn = 1u << 8;      // in kInterruptConfig
constexpr uint32_t kInterruptHigh = 1u << 4;    // active high
constexpr uint32_t kInterruptPushPull = 1u;     // and driven
constexpr uint32_t kFrameReceived = 1u << 3;    // in kInterruptStatus and kInterruptEnable: more frames than
constexpr uint32_t kFramesBeforeInterrupt = 0u; // in kFifoInterrupt

constexpr uint32_t kByteTestValue = 0x87654321;
constexpr uint32_t kSoftReset = 1;
constexpr uint32_t kMustBeOne = 1u << 20;    // in kHardwareConfig
constexpr uint32_t kTxFifoSize = 5u << 16;   // KiB of the 16; the rest receives
constexpr uint32_t kTransmitterOn = 1u << 1; // in kTxConfig

// Registers behind kMacCommand.
constexpr uint32_t kMacControl = 1;
constexpr uint32_t kMacAddressHigh = 2;
constexpr uint32_t kMacAddressLow = 3;
constexpr uint32_t kMacTransmit = 1u << 3; // in kMacControl
constexpr uint32_t kMacReceive = 1u << 2;
constexpr uint32_t kMacBusy = 1u << 31; // in kMacCommand
constexpr uint32_t kMacRead = 1u << 30;

constexpr uint32_t kFirstSegment = 1u << 13; // in the first command word of a frame to send
constexpr uint32_t kLastSegment = 1u << 12;
constexpr uint32_t kCommandSize = 8; // bytes, of both command words

constexpr uint32_t kRxError = 1u << 15; // in kRxStatus
constexpr size_t kChecksumSize = 4;     // bytes

volatile uint32_t &reg(uint32_t offset)
{
    return REGISTER(kEthernetFirst + offset);
}

void mac_wait()
{
    while ((reg(kMacCommand) & kMacBusy) != 0) {
    }
}

uint32_t mac_read(uint32_t index)
{
    reg(kMacCommand) = kMacBusy | kMacRead | index;
    mac_wait();
    return reg(kMacData);
}

void mac_write(uint32_t index, uint32_t value)
{
    reg(kMacData) = value;
    reg(kMacCommand) = kMacBusy | index;
    mac_wait();
}

size_t words_of(size_t bytes)
{
    return (bytes + 3) / 4;
}

} // namespace

bool lan9118_start(uint8_t address[6])
{
    if (reg(kByteTest) != kByteTestValue) {
        return false;
    }
    reg(kHardwareConfig) = kSoftReset;
    while ((reg(kHardwareConfig) & kSoftReset) != 0) {
    }
    reg(kHardwareConfig) = kMustBeOne | kTxFifoSize;
    reg(kTxConfig) = kTransmitterOn;
    mac_write(kMacControl, kMacTransmit | kMacReceive);

    const uint32_t low = mac_read(kMacAddressLow);
    const uint32_t high = mac_read(kMacAddressHigh);
    memcpy(address, &low, 4);
    memcpy(address + 4, &high, 2);
    return true;
}

void lan9118_receive_event_enable()
{
    reg(kFifoInterrupt) = kFramesBeforeInterrupt;
    reg(kInterruptConfig) = kInterruptOn | kInterruptHigh | kInterruptPushPull;
    reg(kInterruptEnable) = kFrameReceived;
}

void lan9118_receive_event_disable()
{
    reg(kInterruptEnable) = 0;
}

void lan9118_receive_event_clear()
{
    reg(kInterruptStatus) = kFrameReceived;
}

bool lan9118_has_frame()
{
    return ((reg(kRxFifo) >> 16) & 0xFF) != 0;
}

size_t lan9118_receive(uint8_t *frame)
{
    if (!lan9118_has_frame()) {
        return 0;
    }
    const uint32_t status = reg(kRxStatus);
    const size_t size = (status >> 16) & 0x3FFF; // the checksum included
    const bool fits = size > kChecksumSize && size <= kEthernetFrameSizeMax + kChecksumSize;
    for (size_t i = 0; i < words_of(size); ++i) {
        const uint32_t word = reg(kRxData);
        if (fits && i < words_of(size - kChecksumSize)) {
            memcpy(frame + 4 * i, &word, 4);
        }
    }
    return fits && (status & kRxError) == 0 ? size - kChecksumSize : 0;
}

bool lan9118_send(const uint8_t *frame, size_t size)
{
    const uint32_t free_bytes = reg(kTxFifo) & 0xFFFF;
    if (free_bytes < 4 * words_of(size) + kCommandSize) {
        return false;
    }
    reg(kTxData) = kFirstSegment | kLastSegment | static_cast<uint32_t>(size);
    reg(kTxData) = static_cast<uint32_t>(size);
    for (size_t i = 0; i < words_of(size); ++i) {
        uint32_t word = 0;
        memcpy(&word, frame + 4 * i, 4);
        reg(kTxData) = word;
    }
    // Nobody waits for the outcome, but it must not fill the queue of outcomes.
    while (((reg(kTxFifo) >> 16) & 0xFF) != 0) {
        const uint32_t outcome = reg(kTxStatus);
        (void)outcome;
    }
    return true;
}
