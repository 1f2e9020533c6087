#include "commands/replay_setup_options.h"

#include <string>

#include "commands/session_description.h"
#include "commands/stream_options.h"

namespace vrc
{
namespace
{

void session_take(const std::string &path, replay_setup *setup)
{
    setup->session = session_read(path);
    for (size_t i = 0; i < setup->session->n_videos; ++i) {
        const sdp_video &video = setup->session->videos[i];
        setup->keys.insert(setup->keys.end(), video.cryptos, video.cryptos + video.n_cryptos);
    }
}

} // namespace

void replay_setup_options_add(CLI::App *command, replay_setup *setup, std::vector<file_use> *files)
{
    srtp_options_add(command, &setup->keys, files);
    command
        ->add_option_function<std::string>(
            "--sdp",
            [setup, files](const std::string &path) {
                session_take(path, setup);
                files->push_back({"--sdp", path, false});
            },
            "Take codecs, retransmission, parameter sets and keys from a session description")
        ->type_name("FILE");
    rtx_option_add(command, &setup->rtx);
    command->add_flag("--give-up-early", setup->gives_up_early,
                      "End the wait for packets that nothing will bring, and ask for a key frame");
}

} // namespace vrc
