// The file is a line of text that names its holder, and then records:
//
//   8 bytes  digest of what follows in the record
//   8 bytes  revision
//   4 bytes  line
//   4 bytes  messages of the revision
//   4 bytes  length of the message
//            the message
//
// Numbers are in network order. A record that is cut or has another digest ends the file: it was being written when the
// process died, and its message was not acknowledged.
#include "state.hpp"

#include "connection.hpp"
#include "envelope.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <sys/file.h>
#include <unistd.h>
#include <utility>

namespace bus {

namespace {

constexpr std::size_t head_size = 28;
// Gathering revisions are given up from the oldest, so that nobody can fill the memory by announcing new ones.
constexpr std::size_t max_revisions = 4;

void put(std::string& bytes, uint64_t number, int size) {
    while (size-- != 0) bytes += static_cast<char>(number >> 8 * size);
}

std::span<const uint8_t> as_bytes(std::string_view text) {
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

uint64_t get(std::string_view bytes, std::size_t offset, std::size_t size) {
    uint64_t number = 0;
    for (const uint8_t byte : as_bytes(bytes.substr(offset, size))) number = number << 8 | byte;
    return number;
}

std::string record(uint64_t revision, uint32_t line, uint32_t total, std::span<const uint8_t> message) {
    std::string body;
    put(body, revision, 8);
    put(body, line, 4);
    put(body, total, 4);
    put(body, message.size(), 4);
    body.append(message.begin(), message.end());
    std::string whole;
    put(whole, digest(as_bytes(body)), 8);
    return whole + body;
}

std::string first_line(const Holder& holder) {
    return "policy_bus 1 " + holder.site + ' ' + holder.device + ' ' + holder.audience + ' ' +
           std::to_string(holder.variant) + '\n';
}

/// Reads the records behind the first line. Returns how many bytes of the file are good.
std::size_t read_records(std::string_view file, std::size_t offset, Revisions& revisions) {
    while (file.size() - offset >= head_size) {
        const std::size_t size = get(file, offset + 24, 4);
        if (size > file.size() - offset - head_size) break;
        const std::string_view body = file.substr(offset + 8, head_size - 8 + size);
        if (get(file, offset, 8) != digest(as_bytes(body))) break;
        Revision& revision = revisions[get(body, 0, 8)];
        revision.total = static_cast<uint32_t>(get(body, 12, 4));
        const auto message = as_bytes(body.substr(head_size - 8));
        revision.messages[static_cast<uint32_t>(get(body, 8, 4))].assign(message.begin(), message.end());
        offset += head_size + size;
    }
    return offset;
}

/// Removes what a complete revision has replaced, and what is more than can be held. Returns whether that was anything.
bool remove_outdated(Revisions& revisions) {
    const std::size_t before = revisions.size();
    const auto current = in_force(revisions);
    if (current != revisions.end() && current->second.is_complete()) revisions.erase(revisions.begin(), current);
    while (revisions.size() > max_revisions)
        revisions.erase(revisions.begin()->second.is_complete() ? std::next(revisions.begin()) : revisions.begin());
    return revisions.size() != before;
}

bool read_file(const std::string& path, std::string& content) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream bytes;
    if (!file) return false;
    if (file.peek() != std::ifstream::traits_type::eof()) bytes << file.rdbuf();
    content = bytes.str();
    return !file.bad();
}

[[noreturn]] void fail(const std::string& path) {
    throw BusError(path + ": " + std::strerror(errno));
}

} // namespace

Revisions::const_iterator in_force(const Revisions& revisions) {
    const auto newest = std::find_if(revisions.rbegin(), revisions.rend(),
                                     [](const auto& entry) { return entry.second.is_complete(); });
    if (newest != revisions.rend()) return std::prev(newest.base());
    return revisions.empty() ? revisions.end() : std::prev(revisions.end());
}

bool read_state(const std::string& path, Holder& holder, Revisions& revisions, std::string& reason) {
    std::string content, program, format;
    int variant = 0;
    if (!read_file(path, content)) return reason = std::strerror(errno), false;
    std::istringstream line(content.substr(0, content.find('\n')));
    if (!(line >> program >> format >> holder.site >> holder.device >> holder.audience >> variant) ||
        program != "policy_bus" || format != "1")
        return reason = "no policy of a device", false;
    holder.variant = static_cast<int8_t>(variant);
    read_records(content, content.find('\n') + 1, revisions);
    return true;
}

State::State(const std::string& folder, Holder holder)
    : holder_(std::move(holder)), path_(folder + '/' + holder_.device + ".policy"),
      lock_(open((path_ + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644)) {
    if (!lock_) fail(path_ + ".lock");
    if (flock(lock_.get(), LOCK_EX | LOCK_NB) != 0) throw BusError(path_ + ": another process has it");
    const std::string line = first_line(holder_);
    std::string content;
    if (!read_file(path_, content) && errno != ENOENT) fail(path_);
    std::size_t good = 0;
    if (content.starts_with(line))
        good = read_records(content, line.size(), revisions_);
    else if (!replace_file(path_, line, true)) // a device of another variant starts from nothing
        fail(path_);
    lacks_acknowledged_ = revisions_.empty() || good != content.size();
    open_file();
    if (good != 0 && good != content.size() && ftruncate(file_.get(), static_cast<off_t>(good)) != 0) fail(path_);
    saved_size_ = static_cast<long>(good != 0 ? good : line.size());
    has_outdated_ = remove_outdated(revisions_);
}

void State::open_file() {
    file_ = Descriptor(open(path_.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
    if (!file_) fail(path_);
}

State::Verdict State::apply(uint64_t revision, uint32_t line, uint32_t total, std::span<const uint8_t> message) {
    const auto current = in_force(revisions_);
    if (current != revisions_.end() && current->second.is_complete() && revision < current->first)
        return Verdict::outdated;
    Revision& held = revisions_[revision];
    held.total = total;
    if (!held.messages.try_emplace(line, message.begin(), message.end()).second) return Verdict::repeated;
    unsaved_ += record(revision, line, total, message);
    if (remove_outdated(revisions_)) has_outdated_ = true;
    return Verdict::applied;
}

std::string State::whole_file() const {
    std::string content = first_line(holder_);
    for (const auto& [number, revision] : revisions_)
        for (const auto& [line, message] : revision.messages) content += record(number, line, revision.total, message);
    return content;
}

bool State::save() {
    if (has_outdated_) {
        const std::string content = whole_file();
        if (!replace_file(path_, content, true)) return false;
        open_file();
        saved_size_ = static_cast<long>(content.size());
        has_outdated_ = false;
    } else if (!unsaved_.empty()) {
        if (!append(file_, unsaved_) || fdatasync(file_.get()) != 0) {
            const int reason = errno;
            if (ftruncate(file_.get(), saved_size_) != 0) has_outdated_ = true; // written as a whole next time
            errno = reason;
            return false;
        }
        saved_size_ += static_cast<long>(unsaved_.size());
    }
    unsaved_.clear();
    return true;
}

} // namespace bus
