// Files, and bytes as words.
#include "tool/input.hpp"

#include "tool/failure.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace epm::tool {

void CloseInput::operator()(std::FILE* file) const {
    if (file != stdin) std::fclose(file);
}

InputFile open_input(const std::string& name) {
    InputFile file(name == "-" ? stdin : std::fopen(name.c_str(), "rb"));
    if (file == nullptr) throw Failure{has_no_file, std::strerror(errno)};
    return file;
}

void each_block(std::FILE* file, const std::function<void(ByteView)>& take) {
    std::array<std::uint8_t, 65536> block;
    for (std::size_t size = 0; (size = std::fread(block.data(), 1, block.size(), file)) != 0;)
        take(ByteView(block).first(size));
    if (std::ferror(file) != 0) throw Failure{has_no_file, std::strerror(errno)};
}

Bytes read_file(const std::string& name, std::size_t most) {
    const InputFile file = open_input(name);
    Bytes bytes;
    each_block(file.get(), [&](ByteView block) {
        bytes.insert(bytes.end(), block.begin(), block.end());
        if (bytes.size() > most) throw Failure{is_damaged, "longer than " + std::to_string(most) + " bytes"};
    });
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

std::optional<std::int8_t> variant_from(std::string_view text) {
    std::int8_t variant = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), variant);
    if (error != std::errc() || end != text.data() + text.size()) return {};
    return variant;
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
