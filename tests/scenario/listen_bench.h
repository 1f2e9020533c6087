// `vrc listen` with senders on this host: sockets, the tool as a process, and senders that know what should come out.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <fmt/format.h>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <thread>

#include "capture_builder.h"
#include "wire/rtcp.h"

namespace vrc_test
{

using nlohmann::json;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

// An address of the loopback interface.
class loopback
{
  public:
    // `host` is the last number of an IPv4 address.
    loopback(int family, uint16_t port, uint8_t host = 1)
    {
        if (family == AF_INET6) {
            sockaddr_in6 address{};
            address.sin6_family = AF_INET6;
            address.sin6_addr = in6addr_loopback;
            address.sin6_port = htons(port);
            std::memcpy(&storage_, &address, sizeof address);
            size_ = sizeof address;
        } else {
            sockaddr_in address{};
            address.sin_family = AF_INET;
            address.sin_addr.s_addr = htonl(INADDR_LOOPBACK - 1 + host);
            address.sin_port = htons(port);
            std::memcpy(&storage_, &address, sizeof address);
            size_ = sizeof address;
        }
    }

    const sockaddr *get() const
    {
        return reinterpret_cast<const sockaddr *>(&storage_);
    }

    socklen_t size() const
    {
        return size_;
    }

  private:
    sockaddr_storage storage_{};
    socklen_t size_;
};

// A UDP socket on the loopback interface; port 0 takes a free one. It sends to 127.0.0.1 or ::1, wherever it is itself.
class udp_socket
{
  public:
    explicit udp_socket(uint16_t port = 0, int family = AF_INET, uint8_t host = 1)
        : family_(family), descriptor_(socket(family, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        const loopback address(family, port, host);
        is_bound_ = bind(descriptor_, address.get(), address.size()) == 0;
    }

    ~udp_socket()
    {
        close(descriptor_);
    }

    udp_socket(const udp_socket &) = delete;
    udp_socket &operator=(const udp_socket &) = delete;

    bool is_bound() const
    {
        return is_bound_;
    }

    uint16_t port() const
    {
        sockaddr_in address{}; // the port is at the same place in both families
        sockaddr_storage storage{};
        socklen_t size = sizeof storage;
        EXPECT_EQ(getsockname(descriptor_, reinterpret_cast<sockaddr *>(&storage), &size), 0);
        std::memcpy(&address, &storage, sizeof address);
        return ntohs(address.sin_port);
    }

    void send(uint16_t to, const bytes &datagram) const
    {
        const loopback address(family_, to);
        EXPECT_EQ(sendto(descriptor_, datagram.data(), datagram.size(), 0, address.get(), address.size()),
                  static_cast<ssize_t>(datagram.size()));
    }

    // What comes within `patience`; empty when nothing does.
    bytes receive(milliseconds patience) const
    {
        pollfd wait{descriptor_, POLLIN, 0};
        bytes datagram(2000);
        const bool is_here = poll(&wait, 1, static_cast<int>(patience.count())) > 0;
        const ssize_t size = is_here ? recv(descriptor_, datagram.data(), datagram.size(), 0) : 0;
        datagram.resize(size > 0 ? static_cast<size_t>(size) : 0);
        return datagram;
    }

  private:
    int family_;
    int descriptor_;
    bool is_bound_ = false;
};

// A port that is free together with the one above it, another one each time. It is below those that the system gives
// out, and from a place of the process's own, so that what runs beside it does not take it before it is used.
inline uint16_t free_port_pair()
{
    constexpr unsigned lowest = 10000;
    constexpr unsigned pairs = 10000;
    constexpr unsigned pairs_of_process = 64;
    static unsigned next = static_cast<unsigned>(getpid()) * pairs_of_process;
    for (unsigned attempt = 0; attempt < pairs; ++attempt) {
        const auto port = static_cast<uint16_t>(lowest + 2 * (next++ % pairs));
        if (udp_socket(port).is_bound() && udp_socket(static_cast<uint16_t>(port + 1)).is_bound()) {
            return port;
        }
    }
    ADD_FAILURE() << "no two free ports in a row";
    return 0;
}

inline std::string content(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// Looked up, as a socket of ours on that port could be in the tool's way.
inline bool is_bound_by_anyone(uint16_t port)
{
    return content("/proc/net/udp").find(fmt::format(":{:04X} ", port)) != std::string::npos;
}

// The port that a tool binds last is taken when it listens.
inline void wait_until_bound(uint16_t port)
{
    const auto end = steady_clock::now() + std::chrono::seconds(5);
    while (!is_bound_by_anyone(port) && steady_clock::now() < end) {
        std::this_thread::sleep_for(milliseconds(20));
    }
}

// `vrc listen` at work, with a summary in JSON. No run takes longer than ten seconds.
class listening_tool
{
  public:
    listening_tool(uint16_t port, const std::string &arguments)
    {
        start("--port " + std::to_string(port) + " " + arguments);
        wait_until_bound(static_cast<uint16_t>(port + 1));
    }

    // The ports are those of a description; `last_port` comes last. What stands in `behind` is behind the command, as the
    // shell reads it.
    listening_tool(const std::string &arguments, uint16_t last_port, const std::string &behind = "")
    {
        start(arguments, behind);
        wait_until_bound(last_port);
    }

    ~listening_tool()
    {
        if (process_ > 0) {
            stop();
        }
    }

    listening_tool(const listening_tool &) = delete;
    listening_tool &operator=(const listening_tool &) = delete;

    void stop(int signal = SIGTERM) const
    {
        kill(process_, signal);
    }

    // Waits for its end and returns the exit status.
    int status()
    {
        int status = -1;
        EXPECT_EQ(waitpid(process_, &status, 0), process_);
        process_ = 0;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    // What the system says of the process under a name: "NoNewPrivs", "Seccomp". Empty when there is nothing.
    std::string system_status(const std::string &name) const
    {
        std::ifstream file("/proc/" + std::to_string(process_) + "/status");
        for (std::string line; std::getline(file, line);) {
            if (line.compare(0, name.size() + 2, name + ":\t") == 0) {
                return line.substr(name.size() + 2);
            }
        }
        return "";
    }

    json summary() const
    {
        return json::parse(content(out_.path()));
    }

    std::string error() const
    {
        return content(err_.path());
    }

    const std::string &out() const
    {
        return out_.path();
    }

  private:
    void start(const std::string &arguments, const std::string &behind = "")
    {
        const std::string command = std::string(behind.empty() ? "exec " : "") + "\"" + VRC_PROGRAM +
                                    "\" listen --json --duration 10 " + arguments + " 2>'" + err_.path() + "' " +
                                    behind + " >'" + out_.path() + "'";
        process_ = fork();
        if (process_ == 0) {
            execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
            _exit(127);
        }
    }

    temporary_file out_;
    temporary_file err_;
    pid_t process_ = 0;
};

constexpr uint16_t kFirstNumber = 65500; // so that numbers begin anew

// Sends pictures of three packets each, every one from the same socket; the first one is a key frame.
class plain_sender
{
  public:
    plain_sender(uint16_t port, uint32_t ssrc, int family = AF_INET) : port_(port), ssrc_(ssrc), socket_(0, family)
    {
    }

    virtual ~plain_sender() = default;
    plain_sender(const plain_sender &) = delete;
    plain_sender &operator=(const plain_sender &) = delete;

    void send_pictures(unsigned count)
    {
        for (unsigned i = 0; i < count; ++i) {
            send_picture();
            rest();
        }
    }

    void say_bye() const
    {
        socket_.send(static_cast<uint16_t>(port_ + 1), bytes{0x81, 203} + be16(1) + be32(ssrc_));
    }

    // What comes out of all that was sent.
    const std::string &bitstream() const
    {
        return bitstream_;
    }

    const udp_socket &socket() const
    {
        return socket_;
    }

    uint16_t port() const
    {
        return port_;
    }

  protected:
    virtual void transmit(uint16_t /*seq*/, const bytes &packet)
    {
        socket_.send(port_, packet);
    }

    // Between two pictures.
    virtual void rest()
    {
        std::this_thread::sleep_for(milliseconds(5));
    }

  private:
    void send_picture()
    {
        const bool is_key = pictures_ == 0;
        if (is_key) {
            const bytes sets = h264_parameter_sets();
            const auto sps_end = sets.begin() + 3 + sets[2];
            note({sets.begin() + 3, sps_end});
            note({sps_end + 2, sets.end()});
            send(sets, false);
        }
        // Of the SSRC as well, so that no sender's pictures are like another's.
        const bytes unit = (is_key ? h264_idr_slice(2000) : h264_inter_slice(500 + pictures_)) + be32(ssrc_);
        note(unit);
        const std::vector<bytes> fragments = h264_fragments(unit, 3);
        for (size_t i = 0; i < fragments.size(); ++i) {
            send(fragments[i], i + 1 == fragments.size());
        }
        ++pictures_;
    }

    void send(const bytes &payload, bool marker)
    {
        const uint16_t seq = seq_++;
        transmit(seq, rtp({seq, pictures_ * 900, marker, ssrc_}, payload));
    }

    void note(const bytes &unit)
    {
        bitstream_ += std::string("\0\0\0\1", 4) + std::string(unit.begin(), unit.end());
    }

    uint16_t port_;
    uint32_t ssrc_;
    udp_socket socket_;
    uint16_t seq_ = kFirstNumber;
    unsigned pictures_ = 0;
    std::string bitstream_;
};

// Sends a picture every 10 ms; loses some packets the first time and repeats what it is asked for.
class lossy_sender : public plain_sender
{
  public:
    // What is done to a packet before it goes out, and to feedback that comes in.
    using conversion = std::function<bytes(const bytes &packet)>;

    explicit lossy_sender(uint16_t port, uint32_t ssrc = 7) : plain_sender(port, ssrc)
    {
    }

    void convert(conversion outgoing, conversion incoming)
    {
        outgoing_ = std::move(outgoing);
        incoming_ = std::move(incoming);
    }

    // From a socket of its own, where it listens too.
    void say_rtcp(const bytes &datagram) const
    {
        rtcp_socket_.send(static_cast<uint16_t>(port() + 1), datagram);
    }

    // Repeats what it is asked for as long as `patience`.
    void answer(milliseconds patience)
    {
        const auto end = steady_clock::now() + patience;
        while (steady_clock::now() < end) {
            answer_from(socket());
            answer_from(rtcp_socket_);
        }
    }

    // Packets that were asked for at least once.
    const std::set<uint16_t> &repeated() const
    {
        return repeated_;
    }

    const std::set<uint16_t> &lost_numbers() const
    {
        return lost_;
    }

  private:
    static constexpr unsigned kPacketsPerLoss = 20;

    void transmit(uint16_t seq, const bytes &packet) override
    {
        sent_[seq] = outgoing_ ? outgoing_(packet) : packet;
        if (sent_.size() % kPacketsPerLoss == 0) {
            lost_.insert(seq);
        } else {
            plain_sender::transmit(seq, sent_[seq]);
        }
    }

    void rest() override
    {
        answer(milliseconds(10));
    }

    void answer_from(const udp_socket &socket)
    {
        const bytes datagram = socket.receive(milliseconds(1));
        if (!datagram.empty()) {
            take_feedback(incoming_ ? incoming_(datagram) : datagram);
        }
    }

    void take_feedback(const bytes &datagram)
    {
        rtcp_cursor cursor = rtcp_cursor_begin(datagram.data(), datagram.size());
        rtcp_item item{};
        while (rtcp_next(&cursor, &item)) {
            if (item.kind == RTCP_ITEM_NACK) {
                rtcp_nack_cursor numbers = rtcp_nack_begin(&item.nack);
                for (seq_t seq = 0; rtcp_nack_next(&numbers, &seq);) {
                    ASSERT_EQ(sent_.count(seq), 1u) << "asked for " << seq << ", which was never sent";
                    repeated_.insert(seq);
                    plain_sender::transmit(seq, sent_[seq]);
                }
            }
        }
    }

    udp_socket rtcp_socket_;
    conversion outgoing_;
    conversion incoming_;
    std::map<uint16_t, bytes> sent_; // by number, as it went out
    std::set<uint16_t> lost_;
    std::set<uint16_t> repeated_;
};

} // namespace vrc_test
