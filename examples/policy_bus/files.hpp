// Files that must be whole whenever somebody looks at them.
#pragma once

#include <string>
#include <string_view>

namespace bus {

/// A descriptor that closes itself.
class Descriptor {
public:
    explicit Descriptor(int number = -1) : number_(number) {}
    Descriptor(Descriptor&& other) noexcept : number_(other.release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept;
    ~Descriptor();

    int get() const { return number_; }
    explicit operator bool() const { return number_ >= 0; }
    int release();

private:
    int number_;
};

/// Writes all bytes at the end of a file. Returns false with errno.
bool append(const Descriptor& file, std::string_view bytes);

/// Gives a file this content in one step: whoever opens it finds the old one or the new one. With is_durable it is on
/// the disk when the call returns. Returns false with errno; the old file is there then.
bool replace_file(const std::string& path, std::string_view content, bool is_durable);

} // namespace bus
