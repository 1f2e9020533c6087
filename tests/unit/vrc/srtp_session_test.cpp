#include "srtp/srtp_session.h"

#include <gtest/gtest.h>
#include <srtp2/srtp.h>

#include <numeric>
#include <ostream>

#include "capture_builder.h"
#include "failure.h"
#include "srtp/srtp_key.h"
#include "srtp/srtp_protector.h"

using namespace vrc;
using namespace vrc_test;

namespace
{

struct suite_row {
    sdp_crypto_suite suite;
    uint8_t key_size;
    uint8_t salt_size;
    size_t tag_size;      // RFC 4568, 6.2; RFC 7714, 14.2
    size_t rtcp_tag_size; // without the index of four bytes
    uint8_t mki_size;
    void (*set_rtp)(srtp_crypto_policy_t *);
    void (*set_rtcp)(srtp_crypto_policy_t *);
};

std::ostream &operator<<(std::ostream &out, const suite_row &row)
{
    return out << "suite " << int{row.suite} << " with an identifier of " << int{row.mki_size} << " bytes";
}

const suite_row kRows[] = {
    {SDP_AES_CM_128_HMAC_SHA1_80, 16, 14, 10, 10, 0, srtp_crypto_policy_set_rtp_default,
     srtp_crypto_policy_set_rtp_default},
    {SDP_AES_CM_128_HMAC_SHA1_80, 16, 14, 10, 10, 6, srtp_crypto_policy_set_rtp_default,
     srtp_crypto_policy_set_rtp_default},
    {SDP_AES_CM_128_HMAC_SHA1_32, 16, 14, 4, 10, 0, srtp_crypto_policy_set_aes_cm_128_hmac_sha1_32,
     srtp_crypto_policy_set_rtp_default},
    {SDP_AEAD_AES_128_GCM, 16, 12, 16, 16, 0, srtp_crypto_policy_set_aes_gcm_128_16_auth,
     srtp_crypto_policy_set_aes_gcm_128_16_auth},
    {SDP_AEAD_AES_256_GCM, 32, 12, 16, 16, 0, srtp_crypto_policy_set_aes_gcm_256_16_auth,
     srtp_crypto_policy_set_aes_gcm_256_16_auth},
};

sdp_crypto key_of(const suite_row &row, uint8_t first_byte = 7)
{
    sdp_crypto key{};
    key.suite = row.suite;
    key.key_size = row.key_size;
    key.salt_size = row.salt_size;
    std::iota(key.key, key.key + row.key_size + row.salt_size, first_byte);
    key.mki = 0x01020304;
    key.mki_size = row.mki_size;
    return key;
}

bytes packet_of(uint16_t seq, uint32_t ssrc = 0x11223344)
{
    return rtp({seq, 3000, true, ssrc}, h264_idr_slice(40));
}

// The other end.
class protector
{
  public:
    explicit protector(const suite_row &row) : row_(row), key_(key_of(row))
    {
        const srtp_session library_user({key_}); // the library may be started only once
        bytes identifier = bytes{0, 0, 1, 2, 3, 4};
        srtp_master_key_t master = {key_.key, identifier.data(), row.mki_size};
        srtp_master_key_t *masters = &master;
        srtp_policy_t policy{};
        row.set_rtp(&policy.rtp);
        row.set_rtcp(&policy.rtcp);
        policy.ssrc.type = ssrc_any_outbound;
        policy.keys = &masters;
        policy.num_master_keys = 1;
        EXPECT_EQ(srtp_create(&srtp_, &policy), srtp_err_status_ok);
    }

    ~protector()
    {
        srtp_dealloc(srtp_);
    }

    protector(const protector &) = delete;
    protector &operator=(const protector &) = delete;

    // The sender's numbers went around that often before.
    void set_rollovers(uint32_t ssrc, uint32_t rollovers)
    {
        protect(packet_of(0, ssrc)); // or the library would not know the sender
        EXPECT_EQ(srtp_set_stream_roc(srtp_, ssrc, rollovers), srtp_err_status_ok);
    }

    bytes protect(bytes packet, bool is_rtcp = false)
    {
        int size = static_cast<int>(packet.size());
        packet.resize(packet.size() + SRTP_MAX_TRAILER_LEN);
        const unsigned has_mki = row_.mki_size > 0 ? 1 : 0;
        EXPECT_EQ(is_rtcp ? srtp_protect_rtcp_mki(srtp_, packet.data(), &size, has_mki, 0)
                          : srtp_protect_mki(srtp_, packet.data(), &size, has_mki, 0),
                  srtp_err_status_ok);
        packet.resize(static_cast<size_t>(size));
        return packet;
    }

  private:
    const suite_row &row_;
    sdp_crypto key_;
    srtp_t srtp_ = nullptr;
};

bytes receiver_report()
{
    return bytes{0x80, 201, 0, 1} + be32(0x11223344);
}

// An address of another host for each `host`.
endpoint host_at(uint8_t host, uint16_t port = 4000)
{
    endpoint made;
    made.address.bytes = {192, 0, 2, host};
    made.port = port;
    return made;
}

// What comes out; empty when the packet is dropped.
bytes unprotect(srtp_session *session, const bytes &packet, zeb_ts_t now = 1000, uint8_t host = 1)
{
    byte_view view(packet.data(), packet.size());
    return session->unprotect(host_at(host), &view, now) ? bytes(view.data(), view.data() + view.size()) : bytes();
}

class SrtpSession : public testing::TestWithParam<suite_row>
{
};

} // namespace

TEST_P(SrtpSession, RestoresWhatWasProtected)
{
    protector sender(GetParam());
    srtp_session session({key_of(GetParam())});
    for (const uint32_t ssrc : {0x11223344u, 0x55u}) {
        for (uint16_t seq = 65530; seq != 10; ++seq) { // across the wrap-around
            const bytes sent = sender.protect(packet_of(seq, ssrc));
            ASSERT_EQ(sent.size(), packet_of(seq).size() + GetParam().tag_size + GetParam().mki_size);
            ASSERT_EQ(unprotect(&session, sent), packet_of(seq, ssrc));
        }
    }
    EXPECT_EQ(session.counts().decrypted, 32u);
}

TEST_P(SrtpSession, RestoresControlPackets)
{
    protector sender(GetParam());
    srtp_session session({key_of(GetParam())});
    const bytes sent = sender.protect(receiver_report(), true);
    ASSERT_EQ(sent.size(), receiver_report().size() + 4 + GetParam().rtcp_tag_size + GetParam().mki_size);
    EXPECT_EQ(unprotect(&session, sent), receiver_report());
}

TEST_P(SrtpSession, DropsPacketWithAnyBitChanged)
{
    protector sender(GetParam());
    const bytes sent = sender.protect(packet_of(1));
    srtp_session session({key_of(GetParam())});
    for (size_t bit = 2; bit < sent.size() * 8; ++bit) { // the first two would make it no RTP
        bytes tampered = sent;
        tampered[bit / 8] = static_cast<uint8_t>(tampered[bit / 8] ^ 0x80 >> bit % 8);
        EXPECT_EQ(unprotect(&session, tampered), bytes()) << "bit " << bit;
        EXPECT_EQ(session.counts().not_authentic + session.counts().malformed, bit - 1) << "bit " << bit;
    }
    EXPECT_EQ(unprotect(&session, sent), packet_of(1));
}

TEST_P(SrtpSession, DropsPacketCutAnywhere)
{
    for (const bool is_rtcp : {false, true}) {
        protector sender(GetParam());
        srtp_session session({key_of(GetParam())});
        const bytes sent = sender.protect(is_rtcp ? receiver_report() : packet_of(1), is_rtcp);
        for (size_t size = is_rtcp ? 8 : 12; size < sent.size(); ++size) {
            EXPECT_EQ(unprotect(&session, {sent.begin(), sent.begin() + static_cast<std::ptrdiff_t>(size)}), bytes())
                << size;
        }
        EXPECT_EQ(session.counts().decrypted, 0u);
    }
}

TEST_P(SrtpSession, DropsReplayedPacket)
{
    protector sender(GetParam());
    srtp_session session({key_of(GetParam())});
    const bytes sent = sender.protect(packet_of(1));
    EXPECT_EQ(unprotect(&session, sent), packet_of(1));
    EXPECT_EQ(unprotect(&session, sent), bytes());
    EXPECT_EQ(session.counts().replayed, 1u);
    EXPECT_EQ(session.counts().not_authentic, 0u);
}

TEST_P(SrtpSession, TriesOneKeyAfterTheOther)
{
    protector sender(GetParam());
    const bytes sent = sender.protect(packet_of(1));
    srtp_session wrong({key_of(GetParam(), 99)});
    EXPECT_EQ(unprotect(&wrong, sent), bytes());
    EXPECT_EQ(wrong.counts().not_authentic, 1u);
    srtp_session both({key_of(GetParam(), 99), key_of(GetParam())});
    EXPECT_EQ(unprotect(&both, sent), packet_of(1));
    EXPECT_EQ(both.counts().not_authentic, 0u);
}

TEST_P(SrtpSession, JoinsSenderWhoseNumbersWentAroundBefore)
{
    for (const uint32_t rollovers : {1u, 2u, 100u, kSrtpRolloversMax}) {
        protector sender(GetParam());
        sender.set_rollovers(0x77, rollovers);
        srtp_session session({key_of(GetParam(), 99), key_of(GetParam())});
        for (uint16_t seq = 65530; seq != 10; ++seq) {
            ASSERT_EQ(unprotect(&session, sender.protect(packet_of(seq, 0x77))), packet_of(seq, 0x77)) << rollovers;
        }
        EXPECT_EQ(session.counts().decrypted, 16u);
        EXPECT_EQ(session.last_key(), 1u);
    }
}

TEST_P(SrtpSession, GoesOnBehindGapThatNumbersWentAroundIn)
{
    protector sender(GetParam());
    srtp_session session({key_of(GetParam())});
    EXPECT_EQ(unprotect(&session, sender.protect(packet_of(100, 0x77))), packet_of(100, 0x77));
    sender.set_rollovers(0x77, 3);
    const bytes old = sender.protect(packet_of(200, 0x77));
    EXPECT_EQ(unprotect(&session, old), packet_of(200, 0x77));
    EXPECT_EQ(unprotect(&session, sender.protect(packet_of(201, 0x77))), packet_of(201, 0x77));
    EXPECT_EQ(unprotect(&session, old), bytes()) << "taken a second time";
}

TEST_P(SrtpSession, IsNotTurnedBackByOldPackets)
{
    protector sender(GetParam());
    const bytes old = sender.protect(packet_of(100, 0x77));
    sender.set_rollovers(0x77, 3);
    srtp_session session({key_of(GetParam())});
    EXPECT_EQ(unprotect(&session, sender.protect(packet_of(100, 0x77))), packet_of(100, 0x77));
    EXPECT_EQ(unprotect(&session, old), bytes());
    EXPECT_EQ(unprotect(&session, sender.protect(packet_of(101, 0x77))), packet_of(101, 0x77));
}

TEST_P(SrtpSession, ProtectsControlPacketsThatItReadsItself)
{
    srtp_protector sender(key_of(GetParam()));
    srtp_session session({key_of(GetParam(), 99), key_of(GetParam())});
    for (int i = 0; i < 3; ++i) {
        const bytes report = receiver_report();
        const byte_view sent = sender.protect({report.data(), report.size()});
        ASSERT_EQ(sent.size(), report.size() + 4 + GetParam().rtcp_tag_size + GetParam().mki_size);
        EXPECT_EQ(unprotect(&session, {sent.data(), sent.data() + sent.size()}), report);
    }
    EXPECT_EQ(session.counts().decrypted, 3u);
    EXPECT_EQ(session.last_key(), 1u);
}

INSTANTIATE_TEST_SUITE_P(EverySuite, SrtpSession, testing::ValuesIn(kRows));

// A sender whose numbers went around before, and junk before and beside it.
struct junk_row {
    const char *what;
    unsigned before;   // packets, at one time
    unsigned a_second; // beside the sender
    uint32_t ssrcs;
    uint8_t host; // 1 is the sender's
    size_t size;
    zeb_ts_t heard_within; // milliseconds
};

TEST(SrtpSessionAmongJunk, FindsSenderThatJoinsLater)
{
    const junk_row rows[] = {
        {"64 datagrams before", 64, 0, 64, 66, 200, 10},
        {"64 datagrams of the same host before", 64, 0, 64, 1, 200, 1000},
        {"a thousand before", 1000, 0, 1000, 66, 200, 10},
        {"one SSRC beside it", 0, 1000, 1, 66, 200, 10},
        {"one SSRC of the same host beside it", 0, 1000, 1, 1, 200, 1000},
        {"a thousand SSRCs beside it", 0, 1000, 1000, 66, 200, 10},
        {"datagrams of 65 KB before", 10, 0, 10, 66, 65000, 10},
    };
    for (const junk_row &row : rows) {
        for (const uint32_t rollovers : {1u, 1000u}) {
            protector sender(kRows[0]);
            sender.set_rollovers(0x77, rollovers);
            srtp_session session({key_of(kRows[0])}, 1);
            uint32_t n_junk = 0;
            const auto junk = [&](zeb_ts_t now) {
                bytes packet = packet_of(static_cast<uint16_t>(n_junk), 0xBAD00 + n_junk % row.ssrcs);
                packet.resize(row.size, 0x5A);
                ++n_junk;
                EXPECT_EQ(unprotect(&session, packet, now, row.host), bytes());
            };
            for (unsigned i = 0; i < row.before; ++i) {
                junk(1000);
            }
            bool is_heard = false;
            zeb_ts_t now = 1000;
            for (uint16_t seq = 100; !is_heard && now < 10'000; now += 10, ++seq) {
                for (unsigned i = 0; i < row.a_second / 100; ++i) {
                    junk(now);
                }
                is_heard = !unprotect(&session, sender.protect(packet_of(seq, 0x77)), now).empty();
            }
            EXPECT_LE(now - 1000, row.heard_within) << row.what << ", after " << rollovers << " turns";
            EXPECT_LE(session.search_trials(),
                      2 * kSearchesSaved * kSrtpRolloversMax + kSearchTrialsPerSecond * (now - 1000) / 1000)
                << row.what;
        }
    }
}

TEST(SrtpSessionAmongJunk, DoesNotSearchWithWhatNoPathCarries)
{
    srtp_session session({key_of(kRows[0])});
    bytes packet = packet_of(1);
    packet.resize(1501);
    EXPECT_EQ(unprotect(&session, packet), bytes());
    EXPECT_EQ(session.search_trials(), 0u);
    packet.resize(1500);
    EXPECT_EQ(unprotect(&session, packet), bytes());
    EXPECT_EQ(session.search_trials(), kSrtpRolloversMax);
}

TEST(SrtpSessionPassing, LeavesAloneWhatIsNoRtp)
{
    srtp_session session({key_of(kRows[0])});
    const bytes rows[] = {{}, {0x80}, bytes{0x00, 0x01} + bytes(40, 1), bytes{22, 0xFE} + bytes(40, 1)}; // STUN, DTLS
    for (const bytes &row : rows) {
        EXPECT_EQ(unprotect(&session, row), row);
    }
}

TEST(SrtpSessionPassing, LeavesAloneEverythingWithoutKeys)
{
    srtp_session session({});
    EXPECT_EQ(unprotect(&session, packet_of(1)), packet_of(1));
    EXPECT_EQ(session.counts().decrypted, 0u);
}

TEST(SrtpKey, IsReadInBase64AndHexadecimal)
{
    // "a" thirty times
    const std::string base64 = "YWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFh";
    std::string hex;
    for (int i = 0; i < 30; ++i) {
        hex += "61";
    }
    for (const sdp_crypto &key : {srtp_key_parse("AES_CM_128_HMAC_SHA1_32:" + base64),
                                  srtp_key_parse("AES_CM_128_HMAC_SHA1_32:inline:" + base64 + "|2^20|1:4"),
                                  srtp_key_parse_hex("AES_CM_128_HMAC_SHA1_32:" + hex)}) {
        EXPECT_EQ(key.suite, SDP_AES_CM_128_HMAC_SHA1_32);
        EXPECT_EQ(bytes(key.key, key.key + 30), bytes(30, 'a'));
    }
    EXPECT_EQ(srtp_key_parse("AES_CM_128_HMAC_SHA1_32:" + base64 + "|1:4").mki_size, 4);
    // 28 bytes: the last group is not full.
    EXPECT_EQ(srtp_key_parse_hex("AEAD_AES_128_GCM:000102030405060708090A0b0c0d0e0f101112131415161718191a1b").key[27],
              27);
}

TEST(SrtpKey, IsRefusedWithReason)
{
    struct {
        const char *text;
        bool is_hex;
        const char *complaint;
    } const rows[] = {
        {"YWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFh", false, "a colon"},
        {"AES_512:YWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFh", false, "unknown suite 'AES_512'"},
        {"AES_CM_128_HMAC_SHA1_80:YWFh", false, "length"},
        {"AES_CM_128_HMAC_SHA1_80:!", false, "base64"},
        {"AES_CM_128_HMAC_SHA1_80:YWFh\na=x", false, "unprintable"},
        {"AES_CM_128_HMAC_SHA1_80:61616", true, "half a byte"},
        {"AES_CM_128_HMAC_SHA1_80:6g", true, "not hexadecimal"},
        {"AES_CM_128_HMAC_SHA1_80:6161", true, "length"},
    };
    for (const auto &row : rows) {
        try {
            row.is_hex ? srtp_key_parse_hex(row.text) : srtp_key_parse(row.text);
            ADD_FAILURE() << row.text;
        } catch (const failure &error) {
            EXPECT_EQ(error.code(), exit_code::wrong_usage);
            EXPECT_NE(std::string(error.what()).find(row.complaint), std::string::npos) << error.what();
        }
    }
}
