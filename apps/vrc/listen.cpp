#include "listen.h"

#include <fmt/format.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <exception>
#include <filesystem>
#include <optional>

#include "listen_session.h"
#include "listen_summary.h"
#include "output_file.h"
#include "packet_recorder.h"
#include "rtcp.h"
#include "stats_record.h"
#include "tool_log.h"
#include "udp_sockets.h"

namespace vrc
{
namespace
{

// The receiver's time at the start, milliseconds. Not 0, which stands for "never" here and there.
constexpr zeb_ts_t kStart = 10'000;

constexpr uint64_t kStatsIntervalMs = 1000;
constexpr const char *kWipeLine = "\r\x1B[K";

uint64_t wall_clock_us()
{
    const auto since_1970 = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(since_1970).count());
}

// Each file has one use. Standard output is one as well.
void outputs_check(const listen_options &options)
{
    const std::array<const std::string *, 4> paths = {&options.output, &options.stats, &options.record, &options.sdp};
    for (size_t i = 0; i < paths.size(); ++i) {
        for (size_t k = 0; k < i; ++k) {
            std::error_code error;
            if (!paths[i]->empty() &&
                (*paths[i] == *paths[k] || std::filesystem::equivalent(*paths[i], *paths[k], error))) {
                throw failure(exit_code::wrong_usage, fmt::format("'{}' is named twice: name another file", *paths[i]));
            }
        }
    }
}

class listener
{
  public:
    explicit listener(const listen_options &options)
        : options_(options), session_(listen_session_make(options)),
          sockets_(&loop_, [this](const udp_arrival &arrival) { guard([&] { take(arrival); }); }),
          receiver_(session_.config, {[this](const channel_frame &frame) { write(frame); },
                                      [this](byte_view datagram) { send(datagram); }})
    {
        if (!options.rtcp.empty()) {
            feedback_to_.name(feedback_peer_parse(options.rtcp));
        }
        addresses_bind();
        outputs_open();
        events_prepare();
    }

    void run()
    {
        tick();
        loop_.run();
        if (is_status_shown_) {
            fmt::print(stderr, "{}", kWipeLine);
        }
        if (error_) {
            std::rethrow_exception(error_);
        }
        record_write();
        outputs_close();
    }

    listen_result result() const
    {
        listen_result result = counts_;
        result.received = receiver_.describe();
        result.where = sockets_.name();
        result.rtcp_malformed = receiver_.rtcp_malformed();
        result.other_senders = receiver_.other_senders();
        result.duration_ms = now() - kStart;
        return result;
    }

    std::string no_video_reason() const
    {
        return receiver_.no_video_reason();
    }

  private:
    void addresses_bind()
    {
        const bool is_default = options_.bind.empty();
        const std::vector<std::string> loopback = {"127.0.0.1", "::1"};
        for (const std::string &address : is_default ? loopback : options_.bind) {
            std::string place;
            const int error = sockets_.bind(address, session_.rtp_port, session_.rtcp_port, &place);
            const bool is_missing = error == UV_EADDRNOTAVAIL || error == UV_EAFNOSUPPORT;
            // A host without IPv6 is none that cannot be listened on.
            const bool may_be_missing = is_default && !sockets_.name().empty();
            if (error != 0 && !(is_missing && may_be_missing)) {
                throw failure(exit_code::no_access,
                              fmt::format("cannot listen on {} (UDP): {}", place, uv_strerror(error)));
            }
        }
    }

    void outputs_open()
    {
        if (!options_.output.empty()) {
            bitstream_.emplace(options_.output);
        }
        if (!options_.stats.empty()) {
            stats_.emplace(options_.stats);
        }
        if (!options_.record.empty()) {
            recorder_.emplace(options_.record);
        }
    }

    void events_prepare()
    {
        tick_timer_ = loop_.make<uv_timer_t>(uv_timer_init, this);
        stats_timer_ = loop_.make<uv_timer_t>(uv_timer_init, this);
        uv_timer_start(
            stats_timer_.get(), [](uv_timer_t *timer) { of(timer)->guard([timer] { of(timer)->second_pass(); }); },
            kStatsIntervalMs, kStatsIntervalMs);
        if (options_.duration_s > 0) {
            end_timer_ = loop_.make<uv_timer_t>(uv_timer_init, this);
            uv_timer_start(
                end_timer_.get(), [](uv_timer_t *timer) { of(timer)->loop_.stop(); },
                static_cast<uint64_t>(options_.duration_s * 1000), 0);
        }
        for (size_t i = 0; i < signals_.size(); ++i) {
            signals_[i] = loop_.make<uv_signal_t>(uv_signal_init, this);
            uv_signal_start(
                signals_[i].get(), [](uv_signal_t *signal, int) { of(signal)->loop_.stop(); }, kSignals[i]);
        }
    }

    template <typename Handle> static listener *of(Handle *handle)
    {
        return static_cast<listener *>(handle->data);
    }

    // Nothing may be thrown through the event loop: it is kept for the end.
    template <typename Action> void guard(Action action) noexcept
    {
        try {
            action();
        } catch (...) {
            error_ = error_ ? error_ : std::current_exception();
            loop_.stop();
        }
    }

    zeb_ts_t now() const
    {
        constexpr uint64_t ns_per_ms = 1'000'000;
        return kStart + (uv_hrtime() - start_ns_) / ns_per_ms;
    }

    void tick()
    {
        const zeb_ts_t time = now();
        const zeb_ts_t next = receiver_.tick(time);
        uv_timer_start(
            tick_timer_.get(), [](uv_timer_t *timer) { of(timer)->guard([timer] { of(timer)->tick(); }); }, next - time,
            0);
    }

    void take(const udp_arrival &arrival)
    {
        const byte_view bytes = arrival.datagram.payload;
        if (recorder_ && !recorder_->write(wall_clock_us(), arrival.datagram)) {
            loop_.stop();
        }
        const bool is_muxed = session_.rtcp_port == session_.rtp_port;
        if (arrival.role == udp_role::rtcp || (is_muxed && rtcp_is_rtcp(bytes.data(), bytes.size()))) {
            ++counts_.rtcp_datagrams;
            feedback_to_.note_rtcp(arrival.from);
            receiver_.receive_rtcp(bytes, now());
        } else {
            ++counts_.rtp_datagrams;
            rtp_view view{};
            if (rtp_parse(bytes.data(), bytes.size(), &view) == PACKET_DROP_REASONS) {
                feedback_to_.note_rtp(arrival.from);
            }
            receiver_.receive_rtp(arrival.datagram, now());
        }
    }

    // Called from within the receiver: what goes wrong is told when the file is closed.
    void write(const channel_frame &frame) noexcept
    {
        if (options_.frames != 0 && frames_ == options_.frames) {
            return;
        }
        ++frames_;
        const bool is_written = !bitstream_ || (bitstream_->write(frame.data, frame.size) && bitstream_->flush());
        if (!is_written || frames_ == options_.frames) {
            loop_.stop();
        }
    }

    // Called from within the receiver. What cannot be sent now is not worth sending later.
    void send(byte_view datagram) noexcept
    {
        const std::optional<feedback_peer> &to = feedback_to_.get();
        const bool is_sent = to && session_.rtcp_port != 0 && sockets_.send_rtcp(*to, datagram) == 0;
        ++(is_sent ? counts_.rtcp_sent : counts_.rtcp_unsent);
    }

    void record_write()
    {
        if (!stats_ || !receiver_.has_stream()) {
            return;
        }
        const replay_result received = receiver_.describe();
        const stats_moment moment{wall_clock_us() / 1000, received.stream.identity.ssrc, receiver_.header_bytes()};
        const std::string text = stats_record(received.report, moment).dump() + "\n";
        if (!stats_->write(text.data(), text.size()) || !stats_->flush()) {
            loop_.stop();
        }
    }

    void second_pass()
    {
        record_write();
        if (options_.verbosity == 0 && isatty(STDERR_FILENO) != 0) {
            is_status_shown_ = true;
            fmt::print(stderr, "{}{}", kWipeLine, listen_status(result()));
            std::fflush(stderr);
        }
    }

    void outputs_close()
    {
        if (bitstream_) {
            bitstream_->close();
        }
        if (stats_) {
            stats_->close();
        }
        if (recorder_) {
            recorder_->close();
        }
    }

    static constexpr std::array<int, 2> kSignals = {SIGINT, SIGTERM};

    const listen_options &options_;
    listen_session session_;
    event_loop loop_; // outlives what lives in it
    udp_sockets sockets_;
    live_receiver receiver_;
    feedback_address feedback_to_;
    handle_ptr<uv_timer_t> tick_timer_;
    handle_ptr<uv_timer_t> stats_timer_;
    handle_ptr<uv_timer_t> end_timer_; // null without an end
    std::array<handle_ptr<uv_signal_t>, kSignals.size()> signals_;
    std::optional<output_file> bitstream_;
    std::optional<output_file> stats_;
    std::optional<packet_recorder> recorder_;
    listen_result counts_;
    uint64_t frames_ = 0; // written
    uint64_t start_ns_ = uv_hrtime();
    bool is_status_shown_ = false;
    std::exception_ptr error_;
};

} // namespace

exit_code listen_run(const listen_options &options)
{
    outputs_check(options);
    log_prepare(options.verbosity);
    listener session(options);
    session.run();

    const listen_result result = session.result();
    const bool is_stdout_taken = options.output == "-" || options.stats == "-" || options.record == "-";
    text_write(is_stdout_taken ? stderr : stdout,
               options.is_json ? json_text(listen_json(result)) : listen_text(result));
    if (result.received.report.frames == 0) {
        const std::string reason = session.no_video_reason();
        throw failure(exit_code::nothing_usable, fmt::format("no frame came out of what came to {}: {}", result.where,
                                                             reason.empty() ? "the summary says why" : reason));
    }
    return exit_code::success;
}

} // namespace vrc
