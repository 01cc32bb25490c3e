// Files, and bytes as words.
#include "tool/input.hpp"

#include "tool/failure.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace epm::tool {

Bytes read_file(const std::string& name, std::size_t most) {
    const auto close = [](std::FILE* file) { return file != stdin ? std::fclose(file) : 0; };
    const std::unique_ptr<std::FILE, decltype(close)> file(name == "-" ? stdin : std::fopen(name.c_str(), "rb"), close);
    Bytes bytes;
    std::array<std::uint8_t, 65536> block;
    for (std::size_t size = 0;
         file != nullptr && (size = std::fread(block.data(), 1, block.size(), file.get())) != 0;) {
        bytes.insert(bytes.end(), block.begin(), block.begin() + static_cast<std::ptrdiff_t>(size));
        if (bytes.size() > most) throw Failure{is_damaged, "longer than " + std::to_string(most) + " bytes"};
    }
    if (file == nullptr || std::ferror(file.get()) != 0) throw Failure{has_no_file, std::strerror(errno)};
    return bytes;
}

void write_file(const std::string& name, std::string_view content) {
    const auto require = [](bool is_done) {
        if (!is_done) throw Failure{has_no_file, std::strerror(errno)};
    };
    struct stat old {};
    const bool is_there = stat(name.c_str(), &old) == 0;
    const bool is_beside = !is_there || S_ISREG(old.st_mode);
    std::error_code no_path;
    const std::string target = is_there ? std::filesystem::canonical(name, no_path).string() : name;
    std::string written = is_beside ? target + ".XXXXXX" : target;
    const int file = is_beside ? mkstemp(written.data()) : open(written.c_str(), O_WRONLY | O_CLOEXEC);
    require(file >= 0);
    try {
        while (!content.empty()) {
            const ssize_t length = write(file, content.data(), content.size());
            require(length >= 0 || errno == EINTR);
            content.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
        }
        const mode_t mask = umask(0);
        umask(mask);
        if (is_beside) {
            require(fchmod(file, is_there ? old.st_mode & 07777 : 0666 & ~mask) == 0);
            require(fsync(file) == 0 && rename(written.c_str(), target.c_str()) == 0);
        }
    } catch (...) {
        close(file);
        if (is_beside) unlink(written.c_str());
        throw;
    }
    close(file);
}

std::optional<Bytes> bytes_of(std::string_view pairs) {
    if (pairs.size() % 2 != 0) return {};
    Bytes bytes;
    for (std::size_t i = 0; i < pairs.size(); i += 2) {
        const int byte = catalogue::hex_byte(pairs.substr(i));
        if (byte < 0) return {};
        bytes.push_back(static_cast<std::uint8_t>(byte));
    }
    return bytes;
}

std::string escaped(std::string_view text) {
    return escaped(ByteView(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
}

std::string escaped(ByteView bytes) {
    std::string text;
    for (const std::uint8_t b : bytes) {
        if (b < 0x20 || b > 0x7E || b == '\\' || b == '"')
            (text += '\\') += to_hex(ByteView(&b, 1));
        else
            text += static_cast<char>(b);
    }
    return text;
}

} // namespace epm::tool
