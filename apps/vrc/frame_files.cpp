#include "frame_files.h"

#include <fmt/format.h>

#include <filesystem>

#include "rtp_finder.h"

namespace vrc
{
namespace
{

constexpr frame_owner kEverybody = {0, 0};

} // namespace

std::string sender_file_name(const std::string &path, uint32_t ssrc, uint8_t codec, unsigned copy)
{
    const std::filesystem::path whole(path);
    const std::string extension =
        whole.has_extension() ? whole.extension().string() : fmt::format(".{}", codec_name(codec));
    const std::string number = copy > 1 ? fmt::format("-{}", copy) : "";
    const std::string name = fmt::format("{}-{:08x}{}{}", whole.stem().string(), ssrc, number, extension);
    return (whole.parent_path() / name).string();
}

frame_files::frame_files(const std::string &path, bool is_split) : path_(path), is_split_(is_split)
{
    if (!path.empty() && !is_split) {
        files_[kEverybody] = {path, std::make_unique<output_file>(path, file_privacy::owner_only)};
    }
}

output_file *frame_files::find_or_open(size_t section, const channel_frame &frame)
{
    const frame_owner owner = is_split_ ? frame_owner{section, frame.uid} : kEverybody;
    const auto found = files_.find(owner);
    if (found != files_.end()) {
        return found->second.file.get();
    }
    std::string name;
    for (unsigned copy = 1; name.empty() || paths_.count(name) > 0; ++copy) {
        name = sender_file_name(path_, frame.uid, frame.codec, copy);
    }
    named_file &added = files_[owner];
    added = {name, std::make_unique<output_file>(name, file_privacy::owner_only)};
    paths_.insert(name);
    return added.file.get();
}

bool frame_files::write(size_t section, const channel_frame &frame) noexcept
{
    if (path_.empty()) {
        return true;
    }
    try {
        output_file *file = error_ ? nullptr : find_or_open(section, frame);
        return file != nullptr && file->write(frame.data, frame.size) && file->flush();
    } catch (...) {
        error_ = std::current_exception();
        return false;
    }
}

void frame_files::close()
{
    for (auto &[owner, named] : files_) {
        if (named.file) {
            named.file->close();
        }
    }
    if (error_) {
        std::rethrow_exception(error_);
    }
}

std::string frame_files::name_of(const frame_owner &owner) const
{
    const auto found = files_.find(owner);
    return is_split_ && found != files_.end() ? found->second.path : "";
}

} // namespace vrc
