#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/landlock.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "failure.h"
#include "live/sandbox.h"

using namespace vrc;

namespace
{

// What the kernel offers, asked for by other means than those of the sandbox.
bool kernel_has_landlock()
{
    return syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION) > 0;
}

bool kernel_has_filters()
{
    return prctl(PR_SET_SECCOMP, 2 /* SECCOMP_MODE_FILTER */, nullptr) != 0 && errno == EFAULT;
}

// What `action` returns in a process of its own, from 0 to 255; -1 when it was killed.
template <typename Action> int in_child(Action action)
{
    const pid_t child = fork();
    if (child == 0) {
        _exit(action());
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool can_open(const std::string &path, int flags)
{
    const int descriptor = open(path.c_str(), flags | O_CLOEXEC, S_IRUSR | S_IWUSR);
    close(descriptor);
    return descriptor >= 0;
}

bool can_make_socket(int family, int type)
{
    const int descriptor = socket(family, type, 0);
    close(descriptor);
    return descriptor >= 0;
}

bool can_execute()
{
    execl("/bin/true", "true", nullptr);
    return false; // else it is another program now, which ends with 0
}

class scratch
{
  public:
    scratch()
    {
        std::string pattern = testing::TempDir() + "sandbox_XXXXXX";
        EXPECT_NE(mkdtemp(pattern.data()), nullptr);
        path_ = pattern;
        std::filesystem::create_directory(path_ + "/inner");
        std::filesystem::create_directory(path_ + "/other");
    }

    ~scratch()
    {
        std::filesystem::remove_all(path_);
    }

    scratch(const scratch &) = delete;
    scratch &operator=(const scratch &) = delete;

    std::string at(const std::string &name) const
    {
        return path_ + "/" + name;
    }

  private:
    std::string path_;
};

constexpr int kCreate = O_WRONLY | O_CREAT;

} // namespace

TEST(Sandbox, IsAllThatTheKernelOffers)
{
    const bool has_files = kernel_has_landlock();
    const bool has_filters = kernel_has_filters();
    EXPECT_EQ(in_child([=] {
                  const sandbox_state state = sandbox_enter("");
                  return state.has_file_rules == has_files && state.has_call_filter == has_filters ? 0 : 1;
              }),
              0);
    EXPECT_TRUE(has_files || has_filters) << "nothing of what follows is tested on this kernel";
}

TEST(Sandbox, OpensNoFileAndStartsNoProgram)
{
    const scratch files;
    enum : int {
        reads = 1,
        creates = 2,
        makes_tcp = 4,
        makes_udp = 8,
        makes_unix = 16,
        maps_code = 32,
    };
    const auto tries = [&files] {
        sandbox_enter("");
        int can = can_open("/etc/passwd", O_RDONLY) ? reads : 0;
        can |= can_open(files.at("inner/new"), kCreate) ? creates : 0;
        can |= can_make_socket(AF_INET, SOCK_STREAM) ? makes_tcp : 0;
        can |= can_make_socket(AF_INET, SOCK_DGRAM) ? makes_udp : 0;
        can |= can_make_socket(AF_UNIX, SOCK_STREAM) ? makes_unix : 0;
        can |= mmap(nullptr, 4096, PROT_READ | PROT_WRITE | PROT_EXEC, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0) != MAP_FAILED
                   ? maps_code
                   : 0;
        return can;
    };
    EXPECT_EQ(in_child(tries), kernel_has_filters() ? 0 : makes_tcp | makes_udp | makes_unix | maps_code);
    EXPECT_EQ(in_child([] {
                  sandbox_enter("");
                  return can_execute() ? 0 : 7;
              }),
              7);
    EXPECT_EQ(in_child([] {
                  sandbox_enter("");
                  return fork() < 0 ? 7 : 0;
              }),
              kernel_has_filters() ? 7 : 0);
}

TEST(Sandbox, WritesInTheDirectoryAlone)
{
    const scratch files;
    ASSERT_TRUE(can_open(files.at("inner/there"), kCreate));
    ASSERT_EQ(symlink("../other/out", files.at("inner/link").c_str()), 0);
    enum : int {
        creates = 1,
        reopens = 2,
        truncates = 4,
        creates_beside = 8,
        follows_link = 16,
        reads = 32,
        reads_back = 64,
    };
    const auto tries = [&files] {
        sandbox_enter(files.at("inner"));
        int can = can_open(files.at("inner/new"), kCreate) ? creates : 0;
        can |= can_open(files.at("inner/there"), kCreate | O_APPEND) ? reopens : 0;
        can |= can_open(files.at("inner/there"), kCreate | O_TRUNC) ? truncates : 0;
        can |= can_open(files.at("other/new"), kCreate) ? creates_beside : 0;
        can |= can_open(files.at("inner/link"), kCreate) ? follows_link : 0;
        can |= can_open("/etc/passwd", O_RDONLY) ? reads : 0;
        can |= can_open(files.at("inner/there"), O_RDONLY) ? reads_back : 0;
        return can;
    };
    const int wanted = creates | reopens | truncates;
    const int everything = wanted | creates_beside | follows_link | reads | reads_back;
    EXPECT_EQ(in_child(tries), kernel_has_landlock() ? wanted : everything);
}

TEST(Sandbox, GoesOnWithWhatIsOpen)
{
    const scratch files;
    const auto works = [&files] {
        const int kept = open(files.at("kept").c_str(), kCreate | O_CLOEXEC, S_IRUSR | S_IWUSR);
        const int sockets[2] = {socket(AF_INET, SOCK_DGRAM, 0), socket(AF_INET, SOCK_DGRAM, 0)};
        sockaddr address{};
        address.sa_family = AF_INET;
        socklen_t size = sizeof address;
        const bool is_bound = bind(sockets[0], &address, size) == 0;
        sandbox_enter("");
        char letter = 'x';
        const bool writes = write(kept, &letter, 1) == 1 && ftruncate(kept, 0) == 0 && close(kept) == 0;
        const bool sends = is_bound && getsockname(sockets[0], &address, &size) == 0 &&
                           sendto(sockets[1], &letter, 1, 0, &address, size) == 1 &&
                           recv(sockets[0], &letter, 1, 0) == 1;
        const std::string large(size_t{10} << 20, 'x'); // memory of the system's own
        return writes && sends && large.back() == 'x' && isatty(STDERR_FILENO) >= 0 ? 7 : 0;
    };
    EXPECT_EQ(in_child(works), 7);
}

TEST(Sandbox, SaysWhenThereIsNoSuchDirectory)
{
    try {
        sandbox_enter("/no/such/place");
        FAIL() << "it went in";
    } catch (const failure &error) {
        EXPECT_EQ(error.code(), exit_code::no_access);
        EXPECT_STREQ(error.what(), "cannot write in '/no/such/place': No such file or directory");
    }
    EXPECT_EQ(prctl(PR_GET_NO_NEW_PRIVS, 0, 0, 0, 0), 0) << "this process is as it was";
}

TEST(Sandbox, TellsWhatTheKernelLacks)
{
    EXPECT_NE(sandbox_text({true, true}).find("no more files can be opened (Landlock)"), std::string::npos);
    EXPECT_NE(sandbox_text({true, true}).find("no programs started, no sockets made (seccomp)"), std::string::npos);
    EXPECT_NE(sandbox_text({false, true}).find("this kernel has no Landlock"), std::string::npos);
    EXPECT_NE(sandbox_text({true, false}).find("this kernel has no seccomp"), std::string::npos);
}
