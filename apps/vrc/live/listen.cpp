#include "live/listen.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <exception>
#include <filesystem>
#include <memory>
#include <new>
#include <optional>
#include <vector>

#include "live/listen_media.h"
#include "live/listen_session.h"
#include "live/sandbox.h"
#include "live/sender_succession.h"
#include "live/udp_sockets.h"
#include "output/listen_outputs.h"
#include "output/output_file.h"
#include "output/tool_log.h"
#include "report/listen_summary.h"
#include "zeb_memory_limit.h"

namespace vrc
{
namespace
{

// The receiver's time at the start, milliseconds. Not 0, which stands for "never" here and there.
constexpr zeb_ts_t kStart = 10'000;

constexpr uint64_t kStatsIntervalMs = 1000;

// The part of the memory that frames of a possible successor may take.
constexpr size_t kHoldPart = 4;
constexpr const char *kWipeLine = "\r\x1B[K";

// The video that comes to one pair of ports, and those ports.
struct listened_media {
    std::unique_ptr<udp_sockets> sockets;
    std::unique_ptr<listen_media> media;
    bool has_rtcp = false;
};

class listener
{
  public:
    explicit listener(const listen_options &options)
        : options_(options), session_(listen_session_make(options)),
          succession_([this](uint32_t ssrc) { return medias_.front().media->receiver().report(ssrc); },
                      [this](const channel_frame &frame) { write(0, frame); },
                      {options.memory / kHoldPart, !session_.sections.front().keys.empty()})
    {
        std::optional<feedback_peer> named_peer;
        if (!options.rtcp.empty()) {
            named_peer = feedback_peer_parse(options.rtcp);
        }
        for (size_t i = 0; i < session_.sections.size(); ++i) {
            media_add(i, named_peer);
        }
        outputs_.emplace(options); // no file is emptied for a port that is taken
        events_prepare();
    }

    // Until something stops it. What went wrong is told by `close`.
    void run()
    {
        tick();
        loop_.run();
        succession_.finish();
        outputs_->write_records(result().streams);
        if (is_status_shown_) {
            fmt::print(stderr, "{}", kWipeLine);
        }
    }

    // Throws failure when something could not be received or written.
    void close()
    {
        if (error_) {
            std::rethrow_exception(error_);
        }
        outputs_->close();
    }

    listen_result result() const
    {
        listen_result result;
        result.is_all = options_.is_all;
        for (size_t i = 0; i < medias_.size(); ++i) {
            media_describe(i, &result);
        }
        result.written = succession_.written();
        if (!options_.is_all) {
            streams_join(&result);
        }
        result.limits.times_without_memory += times_without_memory_;
        result.limits.frames_not_held = succession_.frames_not_held();
        result.limits.frames_without_file = outputs_->frames_without_file();
        result.duration_ms = now() - kStart;
        return result;
    }

    // Why nothing came out, in words.
    std::string no_video_reason() const
    {
        for (const listened_media &one : medias_) {
            std::string reason = one.media->no_video_reason();
            if (!reason.empty()) {
                return reason;
            }
        }
        return "the summary says why";
    }

  private:
    void media_add(size_t index, const std::optional<feedback_peer> &named_peer)
    {
        const listen_section &section = session_.sections[index];
        listened_media added;
        added.has_rtcp = section.rtcp_port != 0;
        added.media = std::make_unique<listen_media>(
            section, options_.sending_key, named_peer,
            media_outputs{[this, index](const channel_frame &frame) { frame_take(index, frame); },
                          [this](const udp_datagram &datagram) { go_on_if(outputs_->write_datagram(datagram)); },
                          [this, index](const feedback_peer &to, byte_view bytes) { return send(index, to, bytes); }});
        added.sockets = std::make_unique<udp_sockets>(
            &loop_, [this, index](const udp_arrival &arrival) { guard([&] { take(index, arrival); }); },
            options_.limits);
        addresses_bind(section, added.sockets.get());
        medias_.push_back(std::move(added));
    }

    void addresses_bind(const listen_section &section, udp_sockets *sockets) const
    {
        const bool is_default = options_.bind.empty();
        const std::vector<std::string> loopback = {"127.0.0.1", "::1"};
        for (const std::string &address : is_default ? loopback : options_.bind) {
            std::string place;
            const int error = sockets->bind(address, section.rtp_port, section.rtcp_port, &place);
            const bool is_missing = error == UV_EADDRNOTAVAIL || error == UV_EAFNOSUPPORT;
            // A host without IPv6 is none that cannot be listened on.
            const bool may_be_missing = is_default && !sockets->name().empty();
            if (error != 0 && !(is_missing && may_be_missing)) {
                throw failure(exit_code::no_access,
                              fmt::format("cannot listen on {} (UDP): {}", place, uv_strerror(error)));
            }
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

    // Nothing may be thrown through the event loop or a receiver. What there is no memory for is dropped and counted, as
    // there may be some for the next; anything else ends the run, and is kept for its end.
    template <typename Action> void guard(Action action) noexcept
    {
        try {
            action();
        } catch (const std::bad_alloc &) {
            ++times_without_memory_;
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

    void take(size_t section, const udp_arrival &arrival)
    {
        listen_media &media = *medias_[section].media;
        const zeb_ts_t time = now();
        media.take(arrival, time);
        const zeb_ts_t wanted = std::max(media.next_at(), time);
        if (wanted < tick_at_) {
            tick_plan(time, wanted);
        }
    }

    void tick_plan(zeb_ts_t time, zeb_ts_t at)
    {
        tick_at_ = at;
        uv_timer_start(
            tick_timer_.get(), [](uv_timer_t *timer) { of(timer)->guard([timer] { of(timer)->tick(); }); }, at - time,
            0);
    }

    void tick()
    {
        const zeb_ts_t time = now();
        tick_plan(time, time + kServiceTickInterval); // whatever comes of this one
        zeb_ts_t next = kServiceNever;
        for (const listened_media &one : medias_) {
            next = std::min(next, one.media->tick(time));
        }
        if (!options_.is_all) {
            succession_.tick(time);
        }
        tick_plan(time, next);
    }

    // This and what follows is called from within a receiver: what goes wrong is told at the end.
    void frame_take(size_t section, const channel_frame &frame) noexcept
    {
        if (options_.is_all) {
            write(section, frame);
        } else {
            guard([&] { succession_.take(frame, now()); });
        }
    }

    void write(size_t section, const channel_frame &frame) noexcept
    {
        go_on_if(outputs_->write_frame(section, frame));
    }

    void go_on_if(bool is_wanted) noexcept
    {
        if (!is_wanted) {
            loop_.stop();
        }
    }

    bool send(size_t section, const feedback_peer &to, byte_view datagram) const noexcept
    {
        const listened_media &from = medias_[section];
        return from.has_rtcp && from.sockets->send_rtcp(to, datagram) == 0;
    }

    void media_describe(size_t index, listen_result *result) const
    {
        const listened_media &one = medias_[index];
        const live_receiver &receiver = one.media->receiver();
        for (const uint32_t ssrc : receiver.senders()) {
            const live_stream stream = receiver.describe(ssrc);
            result->streams.push_back(
                {stream.received, stream.header_bytes, one.media->decryption(), outputs_->frames_name({index, ssrc})});
        }
        result->silent += receiver.others();
        const std::array<uint64_t, PACKET_DROP_REASONS> refused = receiver.refused();
        for (size_t reason = 0; reason < refused.size(); ++reason) {
            result->refused[reason] += refused[reason];
        }
        result->decryption += one.media->decryption();
        result->counts += one.media->counts();
        result->rtcp_malformed += receiver.rtcp_malformed();
        result->limits.datagrams.foreign += one.sockets->refused().foreign;
        result->limits.datagrams.too_large += one.sockets->refused().too_large;
        result->where += (result->where.empty() ? "" : ", ") + one.sockets->name();
    }

    void second_pass()
    {
        if (outputs_->has_records()) {
            go_on_if(outputs_->write_records(result().streams));
        }
        key_warn();
        files_warn();
        if (options_.verbosity == 0 && isatty(STDERR_FILENO) != 0) {
            is_status_shown_ = true;
            fmt::print(stderr, "{}{}", kWipeLine, listen_status(result()));
            std::fflush(stderr);
        }
    }

    // Once, and while there is time to do something about it.
    void key_warn()
    {
        for (const listened_media &one : medias_) {
            const std::string warning = is_key_warned_ ? "" : one.media->wrong_key_reason();
            if (!warning.empty()) {
                fmt::print(stderr, "{}vrc: {}\n", is_status_shown_ ? kWipeLine : "", warning);
                is_key_warned_ = true;
            }
        }
    }

    void files_warn()
    {
        if (!are_files_warned_ && outputs_->frames_without_file() > 0) {
            fmt::print(stderr, "{}vrc: more senders than files: the frames of further ones are counted, not written\n",
                       is_status_shown_ ? kWipeLine : "");
            are_files_warned_ = true;
        }
    }

    static constexpr std::array<int, 2> kSignals = {SIGINT, SIGTERM};

    const listen_options &options_;
    listen_session session_;
    event_loop loop_;                    // outlives what lives in it
    sender_succession succession_;       // unless all are written
    std::vector<listened_media> medias_; // as session_.sections
    handle_ptr<uv_timer_t> tick_timer_;
    zeb_ts_t tick_at_ = 0;
    handle_ptr<uv_timer_t> stats_timer_;
    handle_ptr<uv_timer_t> end_timer_; // null without an end
    std::array<handle_ptr<uv_signal_t>, kSignals.size()> signals_;
    std::optional<listen_outputs> outputs_; // from when the ports are taken
    uint64_t start_ns_ = uv_hrtime();
    bool is_status_shown_ = false;
    bool is_key_warned_ = false;
    bool are_files_warned_ = false;
    uint64_t times_without_memory_ = 0;
    std::exception_ptr error_;
};

// The directory that files are created in while it listens; empty for none.
std::string creation_directory(const listen_options &options)
{
    if (!options.is_all || options.output.empty()) {
        return "";
    }
    const std::filesystem::path path(options.output);
    return path.has_parent_path() ? path.parent_path().string() : ".";
}

void privileges_drop(const listen_options &options)
{
#ifdef VRC_SANITIZED
    constexpr bool is_possible = false; // the sanitizers open files and start a process when they report
#else
    constexpr bool is_possible = true;
#endif
    if (options.has_sandbox && is_possible) {
        const sandbox_state state = sandbox_enter(creation_directory(options));
        if (options.verbosity > 0) {
            text_write(stderr, fmt::format("vrc: from now on {}\n", sandbox_text(state)));
        }
    }
}

bool has_frames(const listen_result &result)
{
    return result.silent.frames > 0 ||
           std::any_of(result.streams.begin(), result.streams.end(),
                       [](const listened_stream &stream) { return stream.received.report.frames > 0; });
}

} // namespace

exit_code listen_run(const listen_options &options)
{
    listen_outputs::check(options);
    log_prepare(options.verbosity);
    zeb_memory_set_limit(options.memory - options.memory / kHoldPart);
    std::signal(SIGPIPE, SIG_IGN); // a player that is closed ends the run, with all that belongs to its end
    listener session(options);
    privileges_drop(options);
    session.run();

    const listen_result result = session.result();
    const bool is_stdout_taken = options.output == "-" || options.stats == "-" || options.record == "-";
    text_write(is_stdout_taken ? stderr : stdout,
               options.is_json ? json_text(listen_json(result)) : listen_text(result));
    session.close();
    if (!has_frames(result)) {
        throw failure(exit_code::nothing_usable,
                      fmt::format("no frame came out of what came to {}: {}", result.where, session.no_video_reason()));
    }
    return exit_code::success;
}

} // namespace vrc
