#include "output/frame_files.h"

#include <fmt/format.h>

#include <filesystem>
#include <new>

#include "capture/rtp_finder.h"

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

bool sender_file_is_possible(const std::string &path, const std::string &name)
{
    std::error_code error;
    const std::filesystem::path pattern =
        std::filesystem::weakly_canonical(std::filesystem::absolute(path, error), error);
    const std::filesystem::path file = std::filesystem::weakly_canonical(std::filesystem::absolute(name, error), error);
    const std::string begin = pattern.stem().string() + "-";
    const std::string found = file.stem().string();
    constexpr size_t ssrc_size = 8;
    return !path.empty() && !name.empty() && pattern.parent_path() == file.parent_path() &&
           (!pattern.has_extension() || pattern.extension() == file.extension()) &&
           found.compare(0, begin.size(), begin) == 0 && found.size() >= begin.size() + ssrc_size &&
           found.find_first_not_of("0123456789abcdef", begin.size()) >= begin.size() + ssrc_size;
}

frame_files::frame_files(const std::string &path, bool is_split, const frame_file_limits &limits)
    : path_(path), is_split_(is_split), limits_(limits)
{
    if (!path.empty() && !is_split) {
        named_file &all = files_[kEverybody];
        all.path = path;
        all.file = open(path, file_start::anew);
        open_files_ = 1;
    }
}

// Of a sender that was put out and came back under another codec there is one already.
std::string frame_files::free_name(const channel_frame &frame) const
{
    std::string name;
    for (unsigned copy = 1; name.empty() || paths_.count(name) > 0; ++copy) {
        name = sender_file_name(path_, frame.uid, frame.codec, copy);
    }
    return name;
}

// Null when there are enough.
frame_files::named_file *frame_files::find_or_add(size_t section, const channel_frame &frame)
{
    const frame_owner owner = is_split_ ? frame_owner{section, frame.uid} : kEverybody;
    const auto found = files_.find(owner);
    if (found != files_.end()) {
        if (!found->second.file) {
            found->second.file = open(found->second.path, file_start::at_end);
            ++open_files_;
        }
        return &found->second;
    }
    if (files_.size() >= limits_.files) {
        return nullptr;
    }
    const std::string name = free_name(frame);
    std::unique_ptr<output_file> file = open(name, file_start::anew);
    paths_.insert(name);
    named_file &added = files_[owner];
    added.path = name;
    added.file = std::move(file);
    ++open_files_;
    return &added;
}

// Makes room for it. Whoever keeps it counts it.
std::unique_ptr<output_file> frame_files::open(const std::string &path, file_start start)
{
    if (open_files_ >= limits_.open_files) {
        close_least_used();
    }
    return std::make_unique<output_file>(path, file_privacy::owner_only, start);
}

void frame_files::close_least_used()
{
    named_file *least = nullptr;
    for (auto &[owner, named] : files_) {
        if (named.file && (least == nullptr || named.used_at < least->used_at)) {
            least = &named;
        }
    }
    if (least != nullptr) {
        --open_files_;
        std::exchange(least->file, nullptr)->close();
    }
}

bool frame_files::write(size_t section, const channel_frame &frame) noexcept
{
    if (path_.empty()) {
        return true;
    }
    try {
        named_file *named = error_ ? nullptr : find_or_add(section, frame);
        if (named == nullptr) {
            ++unwritten_;
            return !error_;
        }
        named->used_at = ++uses_;
        return named->file->write(frame.data, frame.size) && named->file->flush();
    } catch (const std::bad_alloc &) {
        ++unwritten_;
        return true;
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
