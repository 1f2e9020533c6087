#include "commands/command_line.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>

#include <charconv>
#include <exception>
#include <new>

#include "commands/commands.h"
#include "commands/listen_command.h"
#include "commands/option_values.h"
#include "commands/replay_setup_options.h"

namespace vrc
{
namespace
{

constexpr const char *kExamples = R"(
Examples:
  vrc info call.pcapng                        which streams are there
  vrc replay call.pcapng                      what becomes of the video stream's packets
  vrc replay call.pcapng -o call.h264         the same, and write its frames as Annex B
  vrc replay call.pcapng --ssrc 0x2813d755 --json
  vrc replay call.pcapng -o - | ffplay -      watch it
  tcpdump -w - udp | vrc info -               read a pipe to its end
  vrc listen --codec h264 -o call.h264        receive what comes to UDP port 5004 of this host

Exit status: 0 done; 1 no RTP video found, or no frame came out; 2 wrong usage;
3 a file cannot be read or written, or an address not be listened on.)";

constexpr const char *kReplayNotes = R"(
The stream is found by its looks. Where that fails or there are several, the options say which one is
meant and what it carries. Captures that are damaged are replayed up to the damage. OUT is created for its owner alone to
read; a file that is there keeps its mode.)";

constexpr uint64_t kMib = 1 << 20;

// A whole number in decimal or, behind 0x, in hexadecimal. Throws what the command line's parser reports.
template <typename Number> Number number_parse(const std::string &option, const std::string &text, uint64_t limit)
{
    const bool is_hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const char *begin = text.data() + (is_hex ? 2 : 0);
    const char *end = text.data() + text.size();
    uint64_t value = 0;
    const auto [stop, error] = std::from_chars(begin, end, value, is_hex ? 16 : 10);
    if (error != std::errc() || stop != end || value > limit) {
        throw CLI::ValidationError(
            option, fmt::format("'{}' is no number from 0 to {} (decimal, or hexadecimal with 0x)", text, limit));
    }
    return static_cast<Number>(value);
}

class command_line
{
  public:
    command_line()
    {
        app_.set_version_flag("--version", "vrc " VRC_VERSION, "Print the version and exit");
        app_.footer(kExamples);
        app_.require_subcommand(1);
        info_add();
        replay_add();
        listen_ = listen_command_add(&app_, &listen_options_);
    }

    int run(int argc, const char *const *argv)
    {
        command_check(argc, argv);
        try {
            app_.parse(argc, argv);
        } catch (const CLI::ParseError &error) {
            const int code = app_.exit(error);
            return static_cast<int>(code == 0 ? exit_code::success : exit_code::wrong_usage);
        }
        if (listen_->parsed()) {
            return static_cast<int>(listen_run(listen_options_));
        }
        return static_cast<int>(info_->parsed() ? info_run(info_options_) : replay_run(replay_options_));
    }

  private:
    // The parser would only say that a command is missing.
    void command_check(int argc, const char *const *argv) const
    {
        const std::string word = argc > 1 ? argv[1] : "-";
        if (word[0] != '-' && word != info_->get_name() && word != replay_->get_name() && word != listen_->get_name()) {
            throw failure(exit_code::wrong_usage,
                          fmt::format("unknown command '{}'; known are info, replay and listen", word));
        }
    }

    void info_add()
    {
        info_ = app_.add_subcommand("info", "List the RTP streams of a capture");
        info_->add_option("CAPTURE", info_options_.capture, "pcap(ng) or rtpdump; - is standard input")->required();
        copy_limit_add(info_, &info_options_.copy_max);
        info_->add_flag("--json", info_options_.is_json, "Write JSON");
    }

    void replay_add()
    {
        replay_ = app_.add_subcommand("replay", "Run a video stream of a capture through the receiver");
        replay_->footer(kReplayNotes);
        replay_->add_option("CAPTURE", replay_options_.capture, "pcap(ng) or rtpdump; - is standard input")->required();
        replay_->add_option("-o,--output", replay_options_.output, "Write the frames as Annex B; - is standard output")
            ->type_name("OUT");
        replay_->add_option("--frames", replay_options_.frames, "Write a line for each frame; - is standard output")
            ->type_name("FILE");
        copy_limit_add(replay_, &replay_options_.copy_max);
        CLI::Option *json = replay_->add_flag("--json", replay_options_.is_json, "Write the summary as JSON");
        replay_->add_flag("--counts", replay_options_.is_counts, "Write every count as the summary, a line each")
            ->excludes(json);
        replay_->add_flag("-v,--verbose", replay_options_.verbosity,
                          "Print the receiver's log to standard error; twice for all of it");
        choice_add();
        replay_setup_options_add(replay_, &replay_options_.setup, &replay_options_.inputs);
    }

    // What cannot be read twice is copied, and a pipe may have no end.
    static void copy_limit_add(CLI::App *command, uint64_t *copy_max)
    {
        constexpr uint64_t mib_max = UINT64_MAX / kMib;
        command
            ->add_option_function<std::string>(
                "--copy-limit",
                [copy_max](const std::string &text) {
                    *copy_max = number_parse<uint64_t>("--copy-limit", text, mib_max) * kMib;
                },
                fmt::format(
                    "A capture from a pipe or device is copied to the temporary folder: give up beyond that many "
                    "MiB [{}]",
                    kCaptureCopyMax / kMib))
            ->type_name("MIB");
    }

    void choice_add()
    {
        stream_choice &choice = replay_options_.choice;
        choice_option("--ssrc", "Replay the stream of this SSRC", "SSRC", [&choice](const std::string &text) {
            choice.ssrc = number_parse<uint32_t>("--ssrc", text, UINT32_MAX);
        });
        choice_option("--pt", "Replay the stream of this payload type", "TYPE", [&choice](const std::string &text) {
            choice.payload_type = number_parse<uint8_t>("--pt", text, 127);
        });
        choice_option(
            "--port", "Replay the stream from or to this UDP port", "PORT",
            [&choice](const std::string &text) { choice.port = number_parse<uint16_t>("--port", text, UINT16_MAX); });
        choice_option("--codec", "What the stream carries: h264 or h265", "CODEC",
                      [&choice](const std::string &text) { choice.codec = codec_parse("--codec", text); });
    }

    template <typename Setter>
    void choice_option(const char *name, const char *description, const char *type, Setter set)
    {
        replay_->add_option_function<std::string>(name, set, description)->type_name(type);
    }

    CLI::App app_{"vrc receives RTP video (H.264, H.265), captured or live", "vrc"};
    CLI::App *info_ = nullptr;
    CLI::App *replay_ = nullptr;
    CLI::App *listen_ = nullptr;
    info_options info_options_;
    replay_options replay_options_;
    listen_options listen_options_;
};

int report(exit_code code, const char *message)
{
    fmt::print(stderr, "vrc: {}\n", message);
    return static_cast<int>(code);
}

} // namespace

int command_line_run(int argc, const char *const *argv)
{
    try {
        return command_line().run(argc, argv);
    } catch (const failure &error) {
        return report(error.code(), error.what());
    } catch (const std::bad_alloc &) {
        return report(exit_code::no_access, "not enough memory");
    }
}

} // namespace vrc
