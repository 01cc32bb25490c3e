// The kesh_comm Bundle: byte strings.
#include "../common/traits.hpp"

namespace {

struct ByteString : platform::ByteRun<kesh_bytestr> {
    static constexpr char name[] = "kesh_bytestr";
};

} // namespace

PLATFORM_TYPE_INFO(kesh_bytestr, "kesh_comm", "type", 16)
PLATFORM_RECORD(kesh_bytestr, ByteString)
PLATFORM_BUNDLE(kesh_comm)

void platform_kesh_bytestr_write(zur_domain* D, uint32_t S, kesh_bytestr* object, const uint8_t* bytes, uint32_t length,
                                 uint32_t* st) {
    platform::Field<ByteString>::write(D, S, object, {bytes, length}, st);
}

const uint8_t* platform_kesh_bytestr_read(const kesh_bytestr* object, uint32_t* length) {
    *length = object->length;
    return object->bytes;
}
