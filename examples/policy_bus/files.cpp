// Short writes, interrupted calls, and the order in which a file and its folder reach the disk.
#include "files.hpp"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

namespace bus {

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
}

Descriptor::~Descriptor() {
    if (number_ >= 0) close(number_);
}

int Descriptor::release() {
    return std::exchange(number_, -1);
}

bool append(const Descriptor& file, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = write(file.get(), bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

bool replace_file(const std::string& path, std::string_view content, bool is_durable) {
    const std::string beside = path + ".new";
    const Descriptor file(open(beside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    if (!file || !append(file, content) || (is_durable && fsync(file.get()) != 0)) return false;
    if (std::rename(beside.c_str(), path.c_str()) != 0) return false;
    if (!is_durable) return true;
    const std::size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const Descriptor opened(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return opened && fsync(opened.get()) == 0;
}

} // namespace bus
