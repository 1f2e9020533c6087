// Lets `vrc listen` receive from a sender over the loopback interface.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <fstream>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <thread>

#include "capture_builder.h"
#include "rtcp.h"

using namespace vrc_test;

namespace
{

using nlohmann::json;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

sockaddr_in loopback(uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

// A UDP socket on the loopback interface; port 0 takes a free one.
class udp_socket
{
  public:
    explicit udp_socket(uint16_t port = 0) : descriptor_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        const sockaddr_in address = loopback(port);
        is_bound_ = bind(descriptor_, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
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
        sockaddr_in address{};
        socklen_t size = sizeof address;
        EXPECT_EQ(getsockname(descriptor_, reinterpret_cast<sockaddr *>(&address), &size), 0);
        return ntohs(address.sin_port);
    }

    void send(uint16_t to, const bytes &datagram) const
    {
        const sockaddr_in address = loopback(to);
        EXPECT_EQ(sendto(descriptor_, datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr *>(&address),
                         sizeof address),
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
    int descriptor_;
    bool is_bound_ = false;
};

// A port that is free together with the one above it.
uint16_t free_port_pair()
{
    for (int attempt = 0; attempt < 100; ++attempt) {
        const uint16_t port = udp_socket().port();
        if (port < UINT16_MAX && udp_socket(static_cast<uint16_t>(port + 1)).is_bound()) {
            return port;
        }
    }
    ADD_FAILURE() << "no two free ports in a row";
    return 0;
}

std::string content(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// `vrc listen` at work, with a summary in JSON. No run takes longer than ten seconds.
class listening_tool
{
  public:
    listening_tool(uint16_t port, const std::string &arguments)
    {
        const std::string command = std::string("exec \"") + VRC_PROGRAM + "\" listen --json --duration 10 --port " +
                                    std::to_string(port) + " " + arguments + " >'" + out_.path() + "' 2>'" +
                                    err_.path() + "'";
        process_ = fork();
        if (process_ == 0) {
            execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
            _exit(127);
        }
        wait_until_bound(static_cast<uint16_t>(port + 1));
    }

    ~listening_tool()
    {
        if (process_ > 0) {
            stop();
        }
    }

    listening_tool(const listening_tool &) = delete;
    listening_tool &operator=(const listening_tool &) = delete;

    void stop() const
    {
        kill(process_, SIGTERM);
    }

    // Waits for its end and returns the exit status.
    int status()
    {
        int status = -1;
        EXPECT_EQ(waitpid(process_, &status, 0), process_);
        process_ = 0;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    json summary() const
    {
        return json::parse(content(out_.path()));
    }

    std::string error() const
    {
        return content(err_.path());
    }

  private:
    // The RTCP port comes last.
    static void wait_until_bound(uint16_t port)
    {
        const auto end = steady_clock::now() + std::chrono::seconds(5);
        while (udp_socket(port).is_bound() && steady_clock::now() < end) {
            std::this_thread::sleep_for(milliseconds(20));
        }
    }

    temporary_file out_;
    temporary_file err_;
    pid_t process_ = 0;
};

// Sends pictures of three packets each, one every 10 ms; loses some the first time and repeats what it is asked for.
class lossy_sender
{
  public:
    explicit lossy_sender(uint16_t port) : port_(port)
    {
    }

    void send_pictures(unsigned count)
    {
        for (unsigned picture = 0; picture < count; ++picture) {
            send_picture(picture);
            answer(milliseconds(10));
        }
    }

    // Repeats what it is asked for as long as `patience`.
    void answer(milliseconds patience)
    {
        const auto end = steady_clock::now() + patience;
        while (steady_clock::now() < end) {
            const bytes datagram = socket_.receive(milliseconds(2));
            if (!datagram.empty()) {
                take_feedback(datagram);
            }
        }
    }

    size_t lost() const
    {
        return lost_.size();
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

    size_t picture_bytes() const
    {
        return picture_bytes_;
    }

  private:
    static constexpr uint16_t kFirst = 65500; // so that numbers begin anew
    static constexpr unsigned kPacketsPerLoss = 20;

    void send_picture(unsigned picture)
    {
        constexpr size_t start_code_size = 4;
        if (picture == 0) {
            const bytes sets = h264_parameter_sets();
            picture_bytes_ += sets.size() - 5 + 2 * start_code_size; // less STAP-A's header and two sizes
            send(picture, sets, false);
        }
        const bytes unit = picture == 0 ? h264_idr_slice(2000) : h264_inter_slice(1000 + picture);
        picture_bytes_ += unit.size() + start_code_size;
        const std::vector<bytes> fragments = h264_fragments(unit, 3);
        for (size_t i = 0; i < fragments.size(); ++i) {
            send(picture, fragments[i], i + 1 == fragments.size());
        }
    }

    void send(unsigned picture, const bytes &payload, bool marker)
    {
        const auto seq = static_cast<uint16_t>(kFirst + sent_.size());
        const bytes packet = rtp({seq, picture * 900, marker}, payload);
        sent_[seq] = packet;
        if (sent_.size() % kPacketsPerLoss == 0) {
            lost_.insert(seq);
        } else {
            socket_.send(port_, packet);
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
                    socket_.send(port_, sent_[seq]);
                }
            }
        }
    }

    uint16_t port_;
    udp_socket socket_;
    std::map<uint16_t, bytes> sent_;
    std::set<uint16_t> lost_;
    std::set<uint16_t> repeated_;
    size_t picture_bytes_ = 0;
};

json last_line(const std::string &path)
{
    const std::string text = content(path);
    const size_t begin = text.rfind('\n', text.size() - 2);
    return json::parse(text.substr(begin == std::string::npos ? 0 : begin + 1));
}

} // namespace

TEST(VrcListen, ReceivesFfmpegUntilItIsTerminated)
{
    const uint16_t port = free_port_pair();
    const temporary_file out;
    const temporary_file messages;
    listening_tool tool(port, "--codec h264 -o " + out.path());
    const std::string send = "ffmpeg -nostdin -v error -re -f lavfi -i testsrc2=size=320x240:rate=30 -t 3 -c:v libx264 "
                             "-preset ultrafast -g 30 -f rtp rtp://127.0.0.1:" +
                             std::to_string(port) + " >/dev/null";
    ASSERT_EQ(std::system(send.c_str()), 0);
    std::this_thread::sleep_for(milliseconds(200));
    tool.stop();
    ASSERT_EQ(tool.status(), 0) << tool.error();
    const json summary = tool.summary();
    EXPECT_GT(summary["frames"]["delivered"], 60);
    EXPECT_EQ(summary["stream"]["codec"], "h264");
    EXPECT_GT(summary["feedback"]["reports"], 0);
    const std::string decode = "ffmpeg -nostdin -v error -xerror -i " + out.path() + " -f null - 2>" + messages.path();
    EXPECT_EQ(std::system(decode.c_str()), 0);
    EXPECT_EQ(content(messages.path()), "");
}

TEST(VrcListen, AsksForLostPacketsUntilAllFramesAreWhole)
{
    constexpr unsigned pictures = 150;
    const uint16_t port = free_port_pair();
    const temporary_file out;
    const temporary_file stats;
    const temporary_file record;
    listening_tool tool(port, "--codec h264 --pt 96 --frames 150 -o " + out.path() + " --stats " + stats.path() +
                                  " --record " + record.path());
    lossy_sender sender(port);
    sender.send_pictures(pictures);
    sender.answer(milliseconds(500));
    ASSERT_EQ(tool.status(), 0) << tool.error();

    const json summary = tool.summary();
    EXPECT_EQ(summary["frames"]["delivered"], pictures);
    EXPECT_EQ(summary["frames"]["dropped"], 0);
    EXPECT_EQ(summary["packets"]["lost"], 0);
    EXPECT_EQ(content(out.path()).size(), sender.picture_bytes());
    EXPECT_EQ(sender.lost(), 22u);
    for (const uint16_t seq : sender.lost_numbers()) {
        EXPECT_EQ(sender.repeated().count(seq), 1u) << seq;
    }
    const json last = last_line(stats.path());
    EXPECT_GT(last["nackCount"], 0);
    EXPECT_EQ(last["framesAssembled"], pictures);

    const std::string replay =
        std::string("\"") + VRC_PROGRAM + "\" replay " + record.path() + " -o - 2>/dev/null | cmp -s - " + out.path();
    EXPECT_EQ(std::system(replay.c_str()), 0) << "the recorded capture gives other frames";
}

TEST(VrcListen, SaysWhenNothingComes)
{
    listening_tool tool(free_port_pair(), "--codec h264");
    tool.stop();
    EXPECT_EQ(tool.status(), 1);
    EXPECT_NE(tool.error().find("no RTP came"), std::string::npos) << tool.error();
    EXPECT_EQ(tool.summary()["packets"]["received"], 0);
}

TEST(VrcListen, SaysWhatIsWrongBeforeItListens)
{
    const udp_socket taken;
    const std::string in_use = std::to_string(taken.port());
    struct {
        std::string arguments;
        int status;
        std::string message;
    } const rows[] = {
        {"", 2, "--codec h264"},
        {"--codec vp8", 2, "unknown codec 'vp8'"},
        {"--codec h264 --feedback nack,ack", 2, "unknown feedback 'ack'"},
        {"--codec h264 --bind nowhere", 2, "'nowhere' is no IPv4 or IPv6 address"},
        {"--codec h264 --rtcp 127.0.0.1", 2, "'127.0.0.1' is no HOST:PORT"},
        {"--codec h264 -o same --record same", 2, "'same' is named twice"},
        {"--codec h264 --port " + in_use, 3, "cannot listen on 127.0.0.1:" + in_use + " (UDP): address already in use"},
        {"--codec h264 --bind 192.0.2.1", 3, "cannot listen on 192.0.2.1:5004 (UDP): address not available"},
        {"--sdp /no/such.sdp", 3, "cannot read '/no/such.sdp': No such file or directory"},
    };
    for (const auto &row : rows) {
        const temporary_file err;
        const std::string command =
            std::string("\"") + VRC_PROGRAM + "\" listen --duration 1 " + row.arguments + " 2>" + err.path();
        const int status = std::system(command.c_str());
        EXPECT_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : -1, row.status) << row.arguments;
        EXPECT_NE(content(err.path()).find(row.message), std::string::npos) << content(err.path());
    }
}
