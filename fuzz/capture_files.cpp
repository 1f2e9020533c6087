// Capture files (pcap, pcapng, rtpdump) through the tool's readers and its search for streams.

#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "capture/capture_reader.h"
#include "capture/rtp_finder.h"
#include "check.h"
#include "failure.h"
#include "fuzz_input.h"

namespace
{

// A file in memory.
class File
{
  public:
    File(const uint8_t *data, size_t size) : descriptor_(memfd_create("capture", MFD_CLOEXEC))
    {
        fuzz::check(write(descriptor_, data, size) == static_cast<ssize_t>(size), "the input is written");
    }
    ~File()
    {
        close(descriptor_);
    }
    File(const File &) = delete;
    File &operator=(const File &) = delete;

    std::string path() const
    {
        return "/proc/self/fd/" + std::to_string(descriptor_);
    }

  private:
    int descriptor_;
};

void check_counts(const vrc::capture_counts &counts)
{
    fuzz::check(counts.frames == counts.udp + counts.not_udp + counts.fragments + counts.truncated + counts.damaged,
                "a frame is counted once");
}

void read(const vrc::capture_file &file)
{
    vrc::capture_reader reader(file);
    vrc::rtp_finder finder;
    vrc::captured_datagram datagram;
    uint64_t elapsed = 0;
    while (reader.next(&datagram)) {
        fuzz::check(datagram.elapsed_us >= elapsed, "time does not go back");
        elapsed = datagram.elapsed_us;
        finder.observe(datagram);
        vrc::endpoint_name(datagram.udp.path.source);
    }
    check_counts(reader.counts());
    for (const vrc::rtp_stream &stream : finder.streams()) {
        fuzz::check(stream.likelihood >= 0 && stream.likelihood <= 1, "a likelihood is one");
        fuzz::check(stream.first_us <= stream.last_us, "a stream begins before it ends");
        vrc::stream_bit_rate(stream);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const File input(data, size);
    try {
        read(vrc::capture_file(input.path()));
    } catch (const vrc::failure &) { // says why it is no capture
        return 0;
    }
    return 0;
}
