// The files of the command-line tool: what it refuses to overwrite, how much it copies, who may read what it makes, and
// where it takes keys from.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "cli_bench.h"

using namespace vrc_test;

namespace
{

constexpr const char *kKey = "AES_CM_128_HMAC_SHA1_80:YWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFh";
constexpr const char *kOtherKey = "AES_CM_128_HMAC_SHA1_80:YmJiYmJiYmJiYmJiYmJiYmJiYmJiYmJiYmJiYmJi";
constexpr const char *kDescription = "v=0\no=- 1 1 IN IP4 127.0.0.1\ns=-\nc=IN IP4 127.0.0.1\nt=0 0\n"
                                     "m=video 9 RTP/AVP 96\na=rtpmap:96 H264/90000\n";

// A directory of its own with the files of a user: a capture, a description, keys, a former result, and links to them.
class user_directory
{
  public:
    user_directory()
    {
        std::string pattern = testing::TempDir() + "vrc_files_XXXXXX";
        EXPECT_NE(mkdtemp(pattern.data()), nullptr);
        path_ = pattern;
        add("call.pcap", text_of(video().file()));
        add("call.sdp", kDescription);
        add("keys", std::string(kKey) + "\n");
        add("old.h264", "the pictures of another day");
        chmod(at("keys").c_str(), S_IRUSR | S_IWUSR);
        link("soft");
        EXPECT_EQ(::link(at("call.pcap").c_str(), at("hard.pcap").c_str()), 0);
        EXPECT_EQ(symlink("new.h264", at("dangling").c_str()), 0);
    }

    ~user_directory()
    {
        std::filesystem::remove_all(path_);
    }

    user_directory(const user_directory &) = delete;
    user_directory &operator=(const user_directory &) = delete;

    std::string at(const std::string &name) const
    {
        return path_ + "/" + name;
    }

    // `arguments` with the directory for each "@".
    std::string words(std::string arguments) const
    {
        for (size_t place = arguments.find('@'); place != std::string::npos; place = arguments.find('@', place)) {
            arguments.replace(place, 1, path_ + "/");
        }
        return arguments;
    }

    // Every file by its name.
    std::map<std::string, std::string> contents() const
    {
        std::map<std::string, std::string> found;
        for (const auto &entry : std::filesystem::directory_iterator(path_)) {
            if (entry.is_regular_file() && !entry.is_symlink()) {
                found[entry.path().filename()] = content(entry.path());
            }
        }
        return found;
    }

  private:
    void add(const std::string &name, const std::string &text) const
    {
        std::ofstream(at(name), std::ios::binary) << text;
    }

    void link(const std::string &prefix) const
    {
        for (const char *name : {"call.pcap", "call.sdp", "keys", "old.h264"}) {
            EXPECT_EQ(symlink(name, at(prefix + "_" + name).c_str()), 0);
        }
    }

    std::string path_;
};

unsigned mode_of(const std::string &path)
{
    struct stat status {
    };
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 0777u;
}

bool is_key_taken(const outcome &result)
{
    return result.status == 1 && contains(result.err, "is authentic under the keys given");
}

} // namespace

TEST(VrcFiles, RefusesTwoUsesOfOneFileAndLeavesAllAsItWas)
{
    const user_directory files;
    const std::map<std::string, std::string> before = files.contents();
    const std::vector<std::string> rows = {
        "replay @call.pcap -o @call.pcap",
        "replay @call.pcap -o @soft_call.pcap",
        "replay @soft_call.pcap -o @call.pcap",
        "replay @call.pcap --frames @hard.pcap",
        "replay @call.pcap -o @./call.pcap",
        "replay - -o @call.pcap <@call.pcap",
        "replay /dev/stdin -o @call.pcap <@call.pcap",
        "replay @call.pcap --sdp @call.sdp -o @call.sdp",
        "replay @call.pcap --sdp @soft_call.sdp --frames @call.sdp",
        "replay @call.pcap --srtp-file @keys -o @keys",
        "replay @call.pcap -o @new.h264 --frames @new.h264",
        "replay @call.pcap -o @new.h264 --frames @./new.h264",
        "replay @call.pcap -o @new.h264 --frames @dangling",
        "replay @call.pcap -o @dangling --frames @new.h264",
        "replay @call.pcap -o @old.h264 --frames @soft_old.h264",
        "replay @call.pcap -o - --frames -",
        "replay @call.pcap -o - --frames /dev/stdout | cat",
        "replay @call.pcap -o @old.h264 >>@old.h264",
        "replay @call.pcap >>@call.pcap",
        "replay @call.pcap --sdp @call.sdp >>@call.sdp",
        "info @call.pcap >>@call.pcap",
        "listen --codec h264 -o @old.h264 --record @soft_old.h264",
        "listen --codec h264 -o @new.h264 --stats @dangling",
        "listen --codec h264 --stats - --record -",
        "listen --sdp @call.sdp --record @soft_call.sdp",
        "listen --codec h264 --srtp-file @keys --stats @keys",
        "listen --codec h264 --srtp-file @keys --srtp-send-file @soft_keys -o @keys",
        "listen --codec h264 --stats @old.h264 >>@old.h264",
    };
    for (const std::string &row : rows) {
        const outcome result = vrc(files.words(row));
        if (!contains(row, "|")) { // then the status is another's
            EXPECT_EQ(result.status, 2) << row << "\n" << result.err;
        }
        EXPECT_TRUE(contains(result.err, "are the same file")) << row << "\n" << result.err;
        EXPECT_TRUE(files.contents() == before) << row;
    }
}

TEST(VrcFiles, LetsNoSenderChooseAFileThatIsInUse)
{
    const user_directory files;
    const outcome result = vrc(files.words("listen --codec h264 --all -o @call.h264 --record @call-1122aabb.h264"));
    EXPECT_EQ(result.status, 2);
    EXPECT_TRUE(contains(result.err, "is what --all would call a sender's file")) << result.err;
}

TEST(VrcFiles, TakesFilesThatOnlyLookAlike)
{
    const user_directory files;
    for (const char *row : {"replay @call.pcap -o @new.h264 --frames @NEW.h264", "replay @call.pcap -o @a --frames @b",
                            "replay @call.pcap -o /dev/null --frames /dev/null", "replay @call.pcap -o - >@new.h264"}) {
        const outcome result = vrc(files.words(row));
        EXPECT_EQ(result.status, 0) << row << "\n" << result.err;
    }
    EXPECT_NE(content(files.at("new.h264")), content(files.at("NEW.h264")));
}

TEST(VrcFiles, EmptiesNoFileWhenAnotherCannotBeOpened)
{
    const user_directory files;
    const std::map<std::string, std::string> before = files.contents();
    for (const char *row : {"replay @call.pcap -o @old.h264 --frames @no/such/list",
                            "listen --codec h264 --port 9604 --duration 1 -o @old.h264 --stats @no/such/list",
                            "listen --codec h264 --port 9604 --duration 1 -o @old.h264 --record @no/such/list"}) {
        EXPECT_EQ(vrc(files.words(row)).status, 3) << row;
        EXPECT_TRUE(files.contents() == before) << row;
    }
}

TEST(VrcFiles, CreatesWhatMayBeDecryptedForItsOwnerAlone)
{
    const user_directory files;
    const mode_t mask = umask(022);
    EXPECT_EQ(vrc(files.words("replay @call.pcap -o @new.h264 --frames @list")).status, 0);
    EXPECT_EQ(vrc(files.words("listen --codec h264 --port 9606 --duration 0.1 -o @live.h264 --record @live.pcap "
                              "--stats @live.jsonl"))
                  .status,
              1);
    umask(mask);
    EXPECT_EQ(mode_of(files.at("new.h264")), 0600u);
    EXPECT_EQ(mode_of(files.at("live.h264")), 0600u);
    EXPECT_EQ(mode_of(files.at("live.pcap")), 0600u);
    EXPECT_EQ(mode_of(files.at("list")), 0644u);
    EXPECT_EQ(mode_of(files.at("live.jsonl")), 0644u);
    // What the user made for others to read stays so.
    chmod(files.at("new.h264").c_str(), 0640);
    EXPECT_EQ(vrc(files.words("replay @call.pcap -o @new.h264")).status, 0);
    EXPECT_EQ(mode_of(files.at("new.h264")), 0640u);
}

TEST(VrcFiles, GivesUpACaptureThatDoesNotEnd)
{
    const user_directory files;
    for (const char *command : {"info", "replay"}) {
        for (const char *source : {"/dev/zero", "/dev/urandom", "- </dev/zero"}) {
            const outcome result = vrc(std::string(command) + " --copy-limit 3 " + source);
            EXPECT_EQ(result.status, 3) << source;
            EXPECT_TRUE(contains(result.err, "goes on after 3 MiB")) << result.err;
            EXPECT_TRUE(contains(result.err, "--copy-limit")) << result.err;
        }
        const std::string pipe = " --copy-limit 3 <(yes)";
        const outcome result =
            vrc("--version; bash -c '\"$0\" " + std::string(command) + pipe + "' \"" + VRC_PROGRAM + "\"");
        EXPECT_EQ(result.status, 3) << result.err;
        EXPECT_TRUE(contains(result.err, "goes on after 3 MiB")) << result.err;
        EXPECT_TRUE(contains(vrc(std::string(command) + " --help").out, "MiB [1024]"));
    }
    EXPECT_EQ(vrc("info --copy-limit many " + files.at("call.pcap")).status, 2);
}

TEST(VrcFiles, ReadsPipesUpToTheLimit)
{
    const user_directory files;
    EXPECT_EQ(vrc(files.words("replay --copy-limit 1 - <@call.pcap")).status, 0) << "a file is not copied";
    EXPECT_EQ(vrc(files.words("replay --copy-limit 0 - <@call.pcap")).status, 0);
    EXPECT_EQ(vrc(files.words("--version; cat @call.pcap | \"") + VRC_PROGRAM + "\" replay --copy-limit 1 -").status,
              0);
    EXPECT_EQ(vrc(files.words("--version; cat @call.pcap | \"") + VRC_PROGRAM + "\" replay --copy-limit 0 -").status,
              3);
}

TEST(VrcKeys, AreTakenFromFileAndEnvironment)
{
    const user_directory files;
    const std::string replay = "\"" + std::string(VRC_PROGRAM) + "\" replay " + files.at("call.pcap");
    EXPECT_EQ(vrc(files.words("replay @call.pcap")).status, 0);
    EXPECT_TRUE(is_key_taken(vrc(files.words("replay @call.pcap --srtp-file @keys"))));
    EXPECT_TRUE(is_key_taken(vrc("--version; VRC_SRTP=" + std::string(kKey) + " " + replay)));
    EXPECT_TRUE(is_key_taken(vrc("--version; VRC_SRTP='" + std::string(kKey) + " " + kOtherKey + "' " + replay)));
    // A command without keys, and one that has none of its own, are not disturbed.
    EXPECT_EQ(
        vrc("--version; VRC_SRTP=" + std::string(kKey) + " " + VRC_PROGRAM + " info " + files.at("call.pcap")).status,
        0);
    const outcome wrong = vrc("--version; VRC_SRTP=nonsense " + replay);
    EXPECT_EQ(wrong.status, 2);
    EXPECT_TRUE(contains(wrong.err, "SRTP key: write the suite, a colon and the key")) << wrong.err;
}

TEST(VrcKeys, SayWhichLineOfAFileIsWrong)
{
    const user_directory files;
    struct {
        std::string text;
        int status;
        const char *message;
    } const rows[] = {
        {"# of the door camera\n\n  " + std::string(kKey) + "\r\n", 1, "is authentic under the keys given"},
        {std::string(kKey) + "\n" + kOtherKey, 1, "is authentic under the keys given"},
        {"AES_CM_128_HMAC_SHA1_80:hex:" + std::string(60, 'a') + "\n", 1, "is authentic under the keys given"},
        {std::string(kKey) + "\nnonsense\n", 2, "line 2: SRTP key: write the suite, a colon and the key"},
        {"AES_CM_128_HMAC_SHA1_80:hex:abc\n", 2, "line 1: SRTP key: the key has half a byte"},
        {"# nothing\n", 2, "there is no key in it"},
        {"", 2, "there is no key in it"},
    };
    for (const auto &row : rows) {
        std::ofstream(files.at("keys")) << row.text;
        const outcome result = vrc(files.words("replay @call.pcap --srtp-file @keys"));
        EXPECT_EQ(result.status, row.status) << row.text;
        EXPECT_TRUE(contains(result.err, row.message)) << row.text << "\n" << result.err;
    }
    EXPECT_TRUE(
        contains(vrc("replay --srtp-file /no/such/keys " + files.at("call.pcap")).err, "cannot read '/no/such/keys'"));
    EXPECT_TRUE(
        contains(vrc("replay --srtp-file /dev/zero " + files.at("call.pcap")).err, "too large for a file of keys"));
    std::ofstream(files.at("keys")) << kKey << "\n" << kOtherKey << "\n";
    const outcome two = vrc(files.words("listen --codec h264 --srtp-file @keys --srtp-send-file @keys"));
    EXPECT_EQ(two.status, 2);
    EXPECT_TRUE(contains(two.err, "has 2 keys")) << two.err;
}

TEST(VrcKeys, WarnOfAFileThatOthersCanRead)
{
    const user_directory files;
    for (const mode_t mode : {0640u, 0604u, 0644u}) {
        chmod(files.at("keys").c_str(), mode);
        const outcome result = vrc(files.words("replay @call.pcap --srtp-file @keys"));
        EXPECT_TRUE(contains(result.err, "can be read by others: chmod 600")) << result.err;
    }
    chmod(files.at("keys").c_str(), 0600);
    EXPECT_FALSE(contains(vrc(files.words("replay @call.pcap --srtp-file @keys")).err, "chmod"));
}

TEST(VrcKeys, HelpSaysWhatTheCommandLineExposes)
{
    for (const char *command : {"replay --help", "listen --help"}) {
        const std::string help = vrc(command).out;
        EXPECT_TRUE(contains(help, "--srtp-file")) << help;
        EXPECT_TRUE(contains(help, "VRC_SRTP")) << help;
        EXPECT_TRUE(contains(help, "lists processes")) << help;
    }
}
