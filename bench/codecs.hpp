// One codec for each primitive field, as a library that imports its codecs would call them; they live in a shared
// library of their own. Each gets the room that is left and a status word, and returns the bytes written or read.
#pragma once

#include <cstdint>

extern "C" {
std::int32_t bench_put_u16(unsigned char* to, const std::uint16_t* field, std::int32_t room, std::uint32_t* st);
std::int32_t bench_put_u32(unsigned char* to, const std::uint32_t* field, std::int32_t room, std::uint32_t* st);
std::int32_t bench_put_u64(unsigned char* to, const std::uint64_t* field, std::int32_t room, std::uint32_t* st);
std::int32_t bench_put_run(unsigned char* to, const unsigned char* field, std::int32_t count, std::int32_t room,
                           std::uint32_t* st);
std::int32_t bench_get_u16(const unsigned char* from, std::uint16_t* field, std::int32_t room, std::uint32_t* st);
std::int32_t bench_get_u32(const unsigned char* from, std::uint32_t* field, std::int32_t room, std::uint32_t* st);
std::int32_t bench_get_u64(const unsigned char* from, std::uint64_t* field, std::int32_t room, std::uint32_t* st);
std::int32_t bench_get_run(const unsigned char* from, unsigned char* field, std::int32_t count, std::int32_t room,
                           std::uint32_t* st);
}
