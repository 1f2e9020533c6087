#include "commands/listen_command.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>

#include <array>
#include <sstream>

#include "commands/option_values.h"
#include "commands/stream_options.h"
#include "srtp/srtp_key.h"

namespace vrc
{
namespace
{

constexpr const char *kNotes = R"(
Examples:
  vrc listen --codec h264 -o call.h264         what comes to port 5004, until Ctrl-C
  vrc listen --sdp call.sdp -o - | ffplay -    watch it
  vrc listen --codec h264 --record call.pcap --stats call.jsonl --duration 60
  vrc listen --codec h264 --all -o call.h264   each sender into call-SSRC.h264

RTCP comes to the port above the one of RTP, and goes to where --rtcp says, else to where the sender's RTCP comes
from, else to where its RTP comes from. Without --all one sender at a time is written; one that is started again
goes on in the same file.

Once its ports and files are open, it gives up what it does not need, as far as the kernel can (Landlock, seccomp): opening
files (with --all it creates some in the directory of OUT still), starting programs, making sockets. -v says what was given up,
--no-sandbox keeps it. Files of frames and packets are created for their owner alone to read.)";

struct feedback_name {
    const char *name;
    bool channel_feedback::*member;
};

constexpr std::array<feedback_name, 6> kFeedbackNames = {{{"nack", &channel_feedback::nack},
                                                          {"pli", &channel_feedback::pli},
                                                          {"fir", &channel_feedback::fir},
                                                          {"remb", &channel_feedback::remb},
                                                          {"rsize", &channel_feedback::reduced_size},
                                                          {"reports", &channel_feedback::reports}}};

void feedback_switch_on(channel_feedback *feedback, const std::string &word)
{
    for (const feedback_name &known : kFeedbackNames) {
        if (word == known.name) {
            feedback->*known.member = true;
            return;
        }
    }
    throw CLI::ValidationError(
        "--feedback",
        fmt::format("unknown feedback '{}'; known are nack, pli, fir, remb, rsize, reports, or none alone", word));
}

void stream_options_add(CLI::App *command, listen_options *options)
{
    command->add_option("--port", options->port, "UDP port of RTP; 5004 unless the description has another")
        ->check(CLI::Range(1, 65535))
        ->type_name("PORT");
    command
        ->add_option_function<std::string>(
            "--codec", [options](const std::string &text) { options->codec = codec_parse("--codec", text); },
            "What comes: h264 or h265")
        ->type_name("CODEC");
    command
        ->add_option_function<unsigned>(
            "--pt", [options](unsigned type) { options->payload_type = static_cast<uint8_t>(type); },
            "Payload type; found by its looks when not given")
        ->check(CLI::Range(0, 127))
        ->type_name("TYPE");
    command->add_option("--sdp", options->sdp, "Session description of what comes")->type_name("FILE");
    rtx_option_add(command, &options->rtx);
    command->add_option("--bind", options->bind, "Address to listen on, may be repeated; 127.0.0.1 and ::1 by default")
        ->type_name("ADDRESS");
}

void sending_key_take(const std::string &path, listen_options *options)
{
    const std::vector<sdp_crypto> keys = key_file_take(path);
    if (keys.size() != 1) {
        throw failure(exit_code::wrong_usage, fmt::format("'{}' has {} keys: one is sent with", path, keys.size()));
    }
    options->sending_key = keys.front();
    options->key_files.push_back({"--srtp-send-file", path, false});
}

void key_options_add(CLI::App *command, listen_options *options)
{
    srtp_options_add(command, &options->keys, &options->key_files);
    command
        ->add_option_function<std::string>(
            "--srtp-send", [options](const std::string &text) { options->sending_key = srtp_key_parse(text); },
            "Encrypt what is sent with this key instead of the sender's")
        ->type_name("SUITE:KEY")
        ->envname("VRC_SRTP_SEND");
    command
        ->add_option_function<std::string>(
            "--srtp-send-hex", [options](const std::string &text) { options->sending_key = srtp_key_parse_hex(text); },
            "The same with key and salt in hexadecimal")
        ->type_name("SUITE:HEX")
        ->excludes("--srtp-send");
    command
        ->add_option_function<std::string>(
            "--srtp-send-file", [options](const std::string &path) { sending_key_take(path, options); },
            "The same from a file with one SUITE:KEY")
        ->type_name("FILE")
        ->excludes("--srtp-send")
        ->excludes("--srtp-send-hex");
}

void feedback_options_add(CLI::App *command, listen_options *options)
{
    command->add_option("--rtcp", options->rtcp, "Send RTCP there")->type_name("HOST:PORT");
    command->add_flag("--rtcp-mux", options->is_rtcp_muxed, "RTCP comes to the port of RTP");
    command
        ->add_option_function<std::string>(
            "--feedback", [options](const std::string &text) { options->feedback = feedback_parse(text); },
            "What to send: some of nack,pli,fir,remb,rsize,reports, or none")
        ->type_name("LIST");
    command->add_flag("--wait", options->waits, "Sit out losses that nothing will repair");
}

void limit_options_add(CLI::App *command, listen_options *options)
{
    command
        ->add_option("--max-packet", options->limits.datagram_max,
                     "Ignore datagrams of more bytes, and count them; 9216 by default")
        ->check(CLI::Range(size_t{64}, size_t{65536}))
        ->type_name("BYTES");
    command
        ->add_option_function<size_t>(
            "--memory", [options](size_t mebibytes) { options->memory = mebibytes << 20; },
            "MiB that what comes may take, 256 by default: a new sender, a packet or a frame beyond is dropped and "
            "counted")
        ->check(CLI::Range(size_t{4}, size_t{1} << 20))
        ->type_name("MIB");
    command
        ->add_option(
            "--max-senders", options->max_senders,
            "Senders that are received at a time, of each video; 8 by default. Others are refused until one was "
            "silent for 5 s")
        ->check(CLI::Range(1, 128))
        ->type_name("COUNT");
    command
        ->add_option_function<std::vector<std::string>>(
            "--from",
            [options](const std::vector<std::string> &texts) {
                for (const std::string &text : texts) {
                    options->limits.from.push_back(address_range_parse(text));
                }
            },
            "Ignore what comes from elsewhere, and count it; may be repeated")
        ->type_name("ADDRESS/PREFIX");
}

void output_options_add(CLI::App *command, listen_options *options)
{
    command->add_option("-o,--output", options->output, "Write the frames as Annex B; - is standard output")
        ->type_name("OUT");
    command->add_flag("--all", options->is_all, "Write every sender, each to a file of its own: OUT with its SSRC");
    command->add_option("--stats", options->stats, "Write a JSON record of each stream a second; - is standard output")
        ->type_name("FILE");
    command
        ->add_option("--record", options->record, "Write what arrives, decrypted, as a capture; - is standard output")
        ->type_name("PCAP");
    command->add_option("--duration", options->duration_s, "Stop after that many seconds")
        ->check(CLI::Range(0.001, 1e9))
        ->type_name("SECONDS");
    command->add_option("--frames", options->frames, "Stop after that many frames")
        ->check(CLI::Range(uint64_t{1}, UINT64_MAX))
        ->type_name("COUNT");
    command->add_flag("--json", options->is_json, "Write the summary as JSON");
    command->add_flag("!--no-sandbox", options->has_sandbox,
                      "Keep what is given up while it listens: opening files, starting programs, making sockets");
    command->add_flag("-v,--verbose", options->verbosity,
                      "Print the receiver's log to standard error; twice for all of it");
}

} // namespace

channel_feedback feedback_parse(const std::string &text)
{
    channel_feedback feedback{};
    if (text == "none") {
        return feedback;
    }
    std::istringstream words(text);
    for (std::string word; std::getline(words, word, ',');) {
        feedback_switch_on(&feedback, word);
    }
    return feedback;
}

CLI::App *listen_command_add(CLI::App *app, listen_options *options)
{
    CLI::App *command = app->add_subcommand("listen", "Receive video streams from the network");
    command->footer(kNotes);
    stream_options_add(command, options);
    key_options_add(command, options);
    feedback_options_add(command, options);
    limit_options_add(command, options);
    output_options_add(command, options);
    return command;
}

} // namespace vrc
