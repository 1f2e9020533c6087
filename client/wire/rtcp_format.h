// Numbers of the RTCP formats, for those who write and read them.
#pragma once

#include <cstddef>
#include <cstdint>

// Packet types (RFC 3550, 12.1; RFC 4585, 6.1).
constexpr uint8_t kRtcpSr = 200;
constexpr uint8_t kRtcpRr = 201;
constexpr uint8_t kRtcpSdes = 202;
constexpr uint8_t kRtcpBye = 203;
constexpr uint8_t kRtcpTransportFeedback = 205;
constexpr uint8_t kRtcpPayloadFeedback = 206;

// Feedback message types: of transport feedback, then of payload-specific feedback.
constexpr uint8_t kRtcpNack = 1;
constexpr uint8_t kRtcpPli = 1;
constexpr uint8_t kRtcpFir = 4;
constexpr uint8_t kRtcpApplicationFeedback = 15;

constexpr uint32_t kRtcpRembIdentifier = 0x52454D42; // "REMB"
constexpr unsigned kRtcpRembMantissaBits = 18;

constexpr uint8_t kRtcpSdesEnd = 0;
constexpr uint8_t kRtcpSdesCname = 1;

// Sizes in bytes.
constexpr size_t kRtcpHeaderSize = 4;
constexpr size_t kRtcpReportHeaderSize = 8; // with the sender's SSRC
constexpr size_t kRtcpSenderInfoSize = 20;
constexpr size_t kRtcpBlockSize = 24;
constexpr size_t kRtcpSsrcSize = 4;
constexpr size_t kRtcpSdesItemHeaderSize = 2;
constexpr size_t kRtcpFeedbackHeaderSize = 12; // with the SSRCs of sender and media source
constexpr size_t kRtcpNackPairSize = 4;
constexpr size_t kRtcpFirEntrySize = 8;
constexpr size_t kRtcpRembHeaderSize = 20;               // the feedback header, identifier, count and bitrate
constexpr size_t kRtcpPacketSizeMax = size_t{4} * 65536; // the length counts words less one in 16 bits

// A NACK's number and the 16 that follow it, each of them a bit.
constexpr unsigned kRtcpNackPairSpan = 17;
