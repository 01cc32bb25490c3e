#include "tool/library_file.hpp"

#include "tool/failure.hpp"

namespace epm::tool {

void throw_fault(const platform_fault& fault) {
    if (fault.is_damage != 0) throw Damage{fault.offset, fault.reason};
    throw Failure{is_damaged, fault.reason};
}

Section section_named(ByteView file, const char* name, Match match) {
    platform_section found;
    platform_fault fault;
    if (platform_section_find(file.data(), file.size(), name, match == Match::start, &found, &fault) == 0)
        throw_fault(fault);
    return {{found.name, found.name_length}, found.offset, {found.bytes, found.length}};
}

std::uint32_t little_endian(ByteView bytes, std::size_t at, std::size_t width) {
    std::uint32_t number = 0;
    for (std::size_t i = width; i-- > 0;) number = number << 8 | bytes[at + i];
    return number;
}

} // namespace epm::tool
