// The stand-in runtime by itself, without the Bundle: wire forms, moves, variants, store helpers, text in both
// directions, hostile documents and hostile library files. What the Bundle makes of them is tested with the Bundle.
#include <platform/domain.h>
#include <platform/store.h>
#include <platform/trace.h>
#include <platform/values.h>
#include <platform/xml.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <elf.h>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <type_traits>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr uint32_t set_id = 7;

struct Announcement {
    const void* address;
    uint32_t length;
    std::string before; // the bytes as they were when the hook was called

    bool operator==(const Announcement& other) const { return address == other.address && length == other.length; }
};

// Allocations of one test, and whether more are given.
struct Store {
    std::set<void*> live;
    uint32_t left = UINT32_MAX;
};

std::vector<Announcement> announced;

void* store_alloc(void* store, uint32_t, size_t size) {
    auto* s = static_cast<Store*>(store);
    if (s->left == 0) return nullptr;
    --s->left;
    return *s->live.insert(std::malloc(size)).first;
}

void store_free(void* store, uint32_t, void* block) {
    EXPECT_EQ(static_cast<Store*>(store)->live.erase(block), 1u) << "freed twice, or never given";
    std::free(block);
}

class Platform : public testing::Test {
protected:
    Platform() { start({}); }
    ~Platform() override { end(); }

    void start(platform_domain_options options) {
        end();
        options.obj_store = &store;
        options.obj_alloc_fn = store_alloc;
        options.obj_free_fn = store_free;
        D = platform_domain_create(&options);
        D->write_range_fn = [](zur_domain*, void* address, uint32_t length, uint32_t, void*) {
            announced.push_back({address, length, std::string(static_cast<char*>(address), length)});
        };
        announced.clear();
    }

    void end() {
        platform_domain_destroy(D);
        D = nullptr;
        EXPECT_TRUE(store.live.empty());
    }

    // Each failure must also stand in the Domain.
    uint32_t take_status() {
        EXPECT_EQ(D->last_error, st);
        return std::exchange(st, 0);
    }

    Store store;
    zur_domain* D = nullptr;
    uint32_t st = 0;
};

// The bytes that pairs of hexadecimal digits stand for; blanks separate.
std::string hex(const std::string& digits) {
    std::string bytes;
    for (size_t i = 0; i < digits.size(); i += 2) {
        while (digits[i] == ' ') ++i;
        bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
    }
    return bytes;
}

struct FieldOperations {
    uint32_t (*len)(zur_domain*, uint32_t, const void*);
    uint32_t (*marshal)(zur_domain*, uint32_t, void*, const void*, int32_t, uint32_t*);
    uint32_t (*unmarshal)(zur_domain*, uint32_t, const void*, void*, int32_t, uint32_t, uint32_t*);
    uint32_t (*print)(zur_domain*, uint32_t, char*, uint32_t, const char*, const void*, uint32_t, uint32_t*);
    uint32_t (*to_xml)(zur_domain*, uint32_t, const char*, char*, const void*, uint32_t, uint8_t, uint32_t*);
    void (*from_xml)(zur_domain*, uint32_t, const char*, zur_xml_document*, void*, uint32_t*, char*, uint32_t);
    void (*set)(zur_domain*, uint32_t, void*, void*, uint32_t*);
};

struct InstanceOperations {
    void* (*initialize)(zur_domain*, uint32_t, void*, const zur_type_info*, uint32_t, uint32_t, uint32_t, void*,
                        uint32_t*);
    const zur_type_info* type_info;
    int32_t (*compare)(const void*, const void*);
    uint32_t (*hash)(const void*, uint32_t);
};

using Fill = std::function<void(zur_domain*, void*, uint32_t*)>;

// One foreign type with a value to be told from all others, and its wire form by hand.
struct Type {
    const char* name;
    size_t size;
    FieldOperations field;
    InstanceOperations instance;
    void (*destroy)(zur_domain*, uint32_t, void*, uint32_t);
    std::string wire;
    const char* text;
    const char* bad_text;
    Fill fill;
};

template <class Address, class Value>
Fill with(void (*write)(zur_domain*, uint32_t, Address*, Value, uint32_t*), std::type_identity_t<Value> value) {
    return
        [=](zur_domain* D, void* object, uint32_t* st) { write(D, set_id, static_cast<Address*>(object), value, st); };
}

const uint8_t run_bytes[3] = {0x0A, 0x00, 0xFE};
const uint8_t address_bytes[4] = {192, 0, 2, 7};

#define FIELD(type)                                                                                                    \
    { type##_len, type##_marshal, type##_unmarshal, type##_print, type##_to_xml, type##_from_xml, type##_set }
#define INSTANCE(type)                                                                                                 \
    { type##_initialize, &_##type##_type_info_internal, type##_compare, type##_hash }
#define NUMBER(type, c_type) #type, sizeof(c_type), FIELD(type), {}, nullptr
#define ENUMERATION(type) #type, sizeof(struct type), FIELD(type), INSTANCE(type), nullptr
#define RECORD(type) #type, sizeof(struct type), FIELD(type), INSTANCE(type), type##_destroy_internal

const std::vector<Type>& types() {
    static const std::vector<Type> list = {
        {NUMBER(u_int8, uint8_t), hex("a1"), "161", "256", with(u_int8_set_value, 0xA1)},
        {NUMBER(u_int16, uint16_t), hex("a1b2"), "41394", "65536", with(u_int16_set_value, 0xA1B2)},
        {NUMBER(u_int32, uint32_t), hex("a1b2c3d4"), "2712847316", "-1", with(u_int32_set_value, 0xA1B2C3D4)},
        {NUMBER(u_int64, uint64_t), hex("a1b2c3d4e5f60718"), "11651590505119483672", "0x10",
         with(u_int64_set_value, 0xA1B2C3D4E5F60718)},
        {NUMBER(char, char), hex("fd"), "-3", "128", with(char_set_value, -3)},
        {ENUMERATION(zur_boolean), hex("00000001"), "1", "two", with(zur_boolean_set_value, 1)},
        {ENUMERATION(sm_auth_domain), hex("00 00000002"), "2", "two", with(sm_auth_domain_set_value, 2)},
        {RECORD(zur_mac_addr), hex("001b44113ab7"), "00:1b:44:11:3a:b7", "00:1b:44:11:3a:g7",
         with(platform_zur_mac_addr_write, reinterpret_cast<const uint8_t*>("\x00\x1b\x44\x11\x3a\xb7"))},
        {RECORD(zur_vstring), hex("00000003 610a62"), "a\\0ab", "\\0g",
         [](zur_domain* D, void* p, uint32_t* st) {
             platform_zur_vstring_write(D, set_id, static_cast<zur_vstring*>(p), "a\nb", 3, st);
         }},
        {RECORD(kesh_bytestr), hex("00000003 0a00fe"), "0a00fe", "0a0",
         [](zur_domain* D, void* p, uint32_t* st) {
             platform_kesh_bytestr_write(D, set_id, static_cast<kesh_bytestr*>(p), run_bytes, 3, st);
         }},
        {RECORD(ip_address), hex("04 c0000207"), "192.0.2.7", "192.0.2",
         [](zur_domain* D, void* p, uint32_t* st) {
             platform_ip_address_write(D, set_id, static_cast<ip_address*>(p), 4, address_bytes, st);
         }},
        {RECORD(aaa_tlv), hex("0000001a 00000003 0a00fe"), "26:0a00fe", "26",
         [](zur_domain* D, void* p, uint32_t* st) {
             platform_aaa_tlv_write(D, set_id, static_cast<aaa_tlv*>(p), 26, run_bytes, 3, st);
         }},
        {RECORD(sess_mgr_conn_hdl), hex("0102030405060708"), "72623859790382856", "-1",
         with(platform_sess_mgr_conn_hdl_write, 0x0102030405060708)},
        {RECORD(sess_mgr_client_hdl), hex("0000000000000009"), "9", "+9", with(platform_sess_mgr_client_hdl_write, 9)},
        {RECORD(sess_mgr_session_label), hex("000000000000000a"), "10", "1 0",
         with(platform_sess_mgr_session_label_write, 10)},
        {RECORD(sess_mgr_authorize_result), hex("0000000b"), "11", "4294967296",
         with(platform_sess_mgr_authorize_result_write, 11)},
    };
    return list;
}

// A zeroed object of a type, with its header where it has one, that is destroyed at the end.
class Object {
public:
    Object(zur_domain* D, const Type& type, bool filled) : domain_(D), type_(type) {
        uint32_t code = 0;
        if (type.instance.initialize != nullptr)
            type.instance.initialize(D, set_id, memory_, type.instance.type_info, 0, 0, 0, nullptr, &code);
        if (filled) type.fill(D, memory_, &code);
        EXPECT_EQ(code, 0u) << type.name;
    }
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;
    ~Object() {
        if (type_.destroy != nullptr) type_.destroy(domain_, set_id, memory_, 0);
    }

    std::string image() const {
        char buffer[64];
        uint32_t code = 0;
        return {buffer, type_.field.marshal(domain_, set_id, buffer, memory_, sizeof buffer, &code)};
    }

    operator void*() { return memory_; }

private:
    zur_domain* domain_;
    const Type& type_;
    alignas(8) char memory_[64] = {};
};

using Document = std::unique_ptr<zur_xml_document, decltype(&platform_xml_free)>;

Document parse(const std::string& text, std::string* message = nullptr, const platform_xml_limits* limits = nullptr) {
    char line[200] = "";
    Document document(platform_xml_parse(text.data(), text.size(), limits, line, sizeof line), platform_xml_free);
    EXPECT_EQ(document == nullptr, line[0] != 0);
    if (message != nullptr) *message = line;
    return document;
}

TEST_F(Platform, WireFormsAtEveryRoom) {
    for (const Type& type : types()) {
        SCOPED_TRACE(type.name);
        Object object(D, type, true);
        const auto size = static_cast<int32_t>(type.wire.size());
        EXPECT_EQ(type.field.len(D, set_id, object), type.wire.size());
        for (int32_t room = -1; room <= size; ++room) {
            std::string buffer(type.wire.size() + 1, '\x5A');
            const bool fits = room == size;
            EXPECT_EQ(type.field.marshal(D, set_id, buffer.data(), object, room, &st), fits ? type.wire.size() : 0);
            EXPECT_EQ(buffer, (fits ? type.wire : std::string(type.wire.size(), '\x5A')) + '\x5A');
            EXPECT_EQ(take_status(), fits ? 0u : 90u);

            // The heap block ends where the room does, so that a sanitizer sees a read beyond it.
            const std::vector<char> source(type.wire.begin(), type.wire.begin() + std::max(room, 0));
            Object target(D, type, false);
            const std::string empty = target.image();
            EXPECT_EQ(type.field.unmarshal(D, set_id, room > 0 ? source.data() : "", target, room, 0, &st),
                      fits ? type.wire.size() : 0);
            EXPECT_EQ(take_status(), fits ? 0u : 90u);
            EXPECT_EQ(target.image(), fits ? type.wire : empty);
        }
        st = 43;
        char byte = 0;
        EXPECT_EQ(type.field.marshal(D, set_id, &byte, object, 100, &st), 0u);
        EXPECT_EQ(type.field.unmarshal(D, set_id, &byte, object, 100, 0, &st), 0u);
        EXPECT_EQ(std::exchange(st, 0), 43u);
        EXPECT_EQ(byte, 0);
    }
}

TEST_F(Platform, LengthsOfNothing) {
    EXPECT_EQ(ip_address_len(D, set_id, nullptr), 1u);
    EXPECT_EQ(kesh_bytestr_len(D, set_id, nullptr), 4u);
    EXPECT_EQ(aaa_tlv_len(D, set_id, nullptr), 8u);
    EXPECT_EQ(u_int32_len(D, set_id, nullptr), 4u);
    EXPECT_EQ(sm_auth_domain_len(D, set_id, nullptr), 5u);
}

TEST_F(Platform, RunsEqualTheirElements) {
    uint32_t words[11];
    for (uint32_t i = 0; i < 11; ++i) words[i] = 0x01020304u * (i + 1);
    for (int32_t room = -1; room <= 46; ++room) {
        std::string by_element(48, '\x5A');
        std::string by_run = by_element;
        uint32_t run_st = 0;
        uint32_t used = 0;
        for (uint32_t& word : words)
            used += u_int32_marshal(D, set_id, by_element.data() + used, &word, room - static_cast<int32_t>(used), &st);
        EXPECT_EQ(u_int32_marshal_run(D, set_id, by_run.data(), words, 11, room, &run_st), used);
        EXPECT_EQ(by_run, by_element);
        EXPECT_EQ(run_st, take_status());

        uint32_t read[11] = {};
        run_st = 0;
        EXPECT_EQ(u_int32_unmarshal_run(D, set_id, by_run.data(), read, 11, room, &run_st), used);
        EXPECT_EQ(std::memcmp(read, words, used), 0);
        EXPECT_EQ(run_st, room < 44 ? 90u : 0u);
        for (uint32_t i = used / 4; i < 11; ++i) EXPECT_EQ(read[i], 0u);
    }
    const char text[] = "abcdef";
    char out[8] = "zzzzzzz";
    EXPECT_EQ(char_marshal_run(D, set_id, out, text, 6, 4, &st), 4u);
    EXPECT_EQ(take_status(), 90u);
    EXPECT_STREQ(out, "abcdzzz");
    EXPECT_EQ(u_int8_unmarshal_run(D, set_id, text, reinterpret_cast<uint8_t*>(out), 2, 4, &st), 2u);
    EXPECT_EQ(char_marshal_run(D, set_id, out, text, 0, 0, &st), 0u);
    EXPECT_EQ(take_status(), 0u);
}

TEST_F(Platform, LengthsBeyondTheRoom) {
    for (const uint32_t length : {0x80000000u, 0xFFFFFFFFu, 0xFFFFFFFCu, 4u}) {
        char wire[11] = {0, 0, 0, 26};
        for (int i = 0; i < 4; ++i) wire[4 + i] = static_cast<char>(length >> (24 - 8 * i));
        kesh_bytestr run = {};
        aaa_tlv tlv = {};
        EXPECT_EQ(kesh_bytestr_unmarshal(D, set_id, wire + 4, &run, 7, 0, &st), 0u);
        EXPECT_EQ(take_status(), 90u);
        EXPECT_EQ(aaa_tlv_unmarshal(D, set_id, wire, &tlv, 11, 0, &st), 0u);
        EXPECT_EQ(take_status(), 90u);
        EXPECT_EQ(run.bytes, nullptr);
        EXPECT_EQ(tlv.bytes, nullptr);
    }
    ip_address address = {};
    EXPECT_EQ(ip_address_unmarshal(D, set_id, "\5aaaa", &address, 5, 0, &st), 0u);
    EXPECT_EQ(take_status(), 22u);
}

TEST_F(Platform, ReuseKeepsABufferThatFits) {
    const std::string three = hex("00000003 010203");
    const std::string two = hex("00000002 0809");
    kesh_bytestr run = {};
    kesh_bytestr_unmarshal(D, set_id, three.data(), &run, 7, 0, &st);
    const uint8_t* first = run.bytes;
    store.left = 0;
    announced.clear();
    EXPECT_EQ(kesh_bytestr_unmarshal(D, set_id, three.data(), &run, 7, 1, &st), 7u);
    EXPECT_EQ(run.bytes, first);
    EXPECT_THAT(announced, ElementsAre(Announcement{first, 3, ""}, Announcement{&run, 12, ""}));
    EXPECT_EQ(kesh_bytestr_unmarshal(D, set_id, two.data(), &run, 6, 1, &st), 0u);
    EXPECT_EQ(take_status(), 12u);
    EXPECT_EQ(run.length, 3u) << "without memory the old content stays";
    store.left = 1;
    EXPECT_EQ(kesh_bytestr_unmarshal(D, set_id, two.data(), &run, 6, 1, &st), 6u);
    EXPECT_EQ(run.bytes[1], 9);
    EXPECT_EQ(kesh_bytestr_unmarshal(D, set_id, "\0\0\0\0", &run, 4, 1, &st), 4u);
    EXPECT_EQ(run.bytes, nullptr);
    EXPECT_EQ(take_status(), 0u);
}

TEST_F(Platform, SetsMove) {
    for (const Type& type : types()) {
        if (type.destroy == nullptr) continue;
        SCOPED_TRACE(type.name);
        Object source(D, type, true);
        Object target(D, type, true); // its former content must be released
        Object empty(D, type, false);
        const size_t blocks = store.live.size();
        type.field.set(D, set_id, target, source, &st);
        EXPECT_EQ(target.image(), type.wire);
        EXPECT_EQ(source.image(), empty.image());
        EXPECT_LE(store.live.size(), blocks);
        EXPECT_EQ(store.live.size(), blocks / 2);

        // A record's body is copied before its fields are moved.
        Object copied(D, type, false);
        std::memcpy(copied, target, type.size);
        type.field.set(D, set_id, copied, target, &st);
        EXPECT_EQ(copied.image(), type.wire);
        EXPECT_EQ(target.image(), empty.image());
        type.field.set(D, set_id, copied, copied, &st);
        EXPECT_EQ(copied.image(), type.wire);
        EXPECT_EQ(take_status(), 0u);
        type.field.set(D, set_id, copied, nullptr, &st);
        EXPECT_EQ(take_status(), 22u);
    }
}

TEST_F(Platform, ValuesCompareAndHash) {
    for (const Type& type : types()) {
        if (type.instance.compare == nullptr) continue;
        SCOPED_TRACE(type.name);
        Object filled(D, type, true);
        Object same(D, type, true);
        Object empty(D, type, false);
        EXPECT_EQ(type.instance.compare(filled, same), 0);
        EXPECT_GT(type.instance.compare(filled, empty), 0);
        EXPECT_LT(type.instance.compare(empty, filled), 0);
        EXPECT_EQ(type.instance.compare(nullptr, nullptr), 0);
        EXPECT_EQ(type.instance.compare(nullptr, empty), -1);
        EXPECT_EQ(type.instance.compare(empty, nullptr), 1);
        EXPECT_EQ(type.instance.hash(nullptr, 99), 99u);
        EXPECT_EQ(type.instance.hash(filled, 5), type.instance.hash(same, 5));
        EXPECT_NE(type.instance.hash(filled, 5), type.instance.hash(filled, 6));
        EXPECT_NE(type.instance.hash(filled, 5), type.instance.hash(empty, 5));
    }
    // Hashes may be stored, so they must stay: every tail's length, with bytes above 127.
    const uint32_t pinned[] = {17, 0xFBE447C2, 0x4A4E1505, 0x76B843C6, 0x8A705D71, 0x4A1926D6, 0xAD3F928D, 0xF0150F91};
    for (uint32_t length = 0; length < 8; ++length)
        EXPECT_EQ(SuperFastHash("\x80\x91\xA2\xB3\xC4\xD5\xE6", length, length != 0 ? 0x1234 : 17), pinned[length]);
    EXPECT_EQ(SuperFastHash(nullptr, 0, 17), 17u);
}

TEST_F(Platform, EverySetterAnnouncesFirst) {
    for (const Type& type : types()) {
        SCOPED_TRACE(type.name);
        Object object(D, type, false);
        std::string before(static_cast<char*>(static_cast<void*>(object)), type.size);
        announced.clear();
        type.fill(D, object, &st);
        const std::string after(static_cast<char*>(static_cast<void*>(object)), type.size);
        for (const Announcement& a : announced) {
            const auto at = static_cast<const char*>(a.address) - static_cast<char*>(static_cast<void*>(object));
            if (at < 0 || at >= static_cast<std::ptrdiff_t>(type.size)) continue;
            EXPECT_EQ(a.before, before.substr(static_cast<size_t>(at), a.length));
            before.replace(static_cast<size_t>(at), a.length, after, static_cast<size_t>(at), a.length);
        }
        EXPECT_EQ(before, after) << "bytes changed that nobody announced";
    }
}

// The first lies before the table, where a negative variant leads.
zur_variant_record made_records[4] = {{}, {0, 20, 12, 0, 0, 0}, {1, 24, 8, 0, 0, 0}, {2, 32, 0, 0, 0, 0}};
const zur_variant_table made_table = {3, made_records + 1};

zur_type_info made_type(const char* name) {
    zur_type_info type = {};
    type.magic = ZUR_TYPE_INFO_MAGIC;
    std::strncpy(type.name, name, sizeof type.name - 1);
    std::memcpy(type.digest, name, std::min<size_t>(std::strlen(name), 16));
    std::strncpy(type.hex_digest, name, sizeof type.hex_digest - 1);
    type.variant_table = &made_table;
    return type;
}

TEST_F(Platform, VariantsAreAgreedByName) {
    const zur_type_info one = made_type("one");
    const zur_type_info copy = one;
    const zur_type_info two = made_type("two");
    const auto agreed = [&](const zur_type_info* type) {
        return static_cast<int8_t>(zur_domain_lookup_variant(D, &D->variant_context, type, &st));
    };
    EXPECT_EQ(agreed(&one), PLATFORM_HIGHEST_VARIANT);
    platform_domain_agree(D, "one", 1);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(agreed(&one), 1);
        EXPECT_EQ(agreed(&copy), 1);
        EXPECT_EQ(agreed(&two), PLATFORM_HIGHEST_VARIANT);
    }
    platform_domain_agree_all(D, 0);
    platform_domain_agree(D, "two", -1);
    EXPECT_EQ(agreed(&one), 1);
    EXPECT_EQ(agreed(&two), -1);
    EXPECT_EQ(agreed(&_aaa_tlv_type_info_internal), 0);
    EXPECT_EQ(agreed(nullptr), 0);
    std::vector<zur_type_info> many(1000, one);
    for (zur_type_info& type : many) {
        EXPECT_EQ(agreed(&type), 1);
    }
    // Another type at the address of one that is gone.
    many[5] = two;
    EXPECT_EQ(agreed(&many[5]), -1);
    platform_domain_clear_agreement(D);
    EXPECT_EQ(agreed(&two), PLATFORM_HIGHEST_VARIANT);
}

TEST_F(Platform, AdjustingOnlyRaises) {
    const zur_type_info type = made_type("adjusted");
    for (int8_t variant = -1; variant <= 2; ++variant)
        for (int8_t layout = 0; layout <= 2; ++layout)
            for (int8_t agreed = -1; agreed <= 3; ++agreed)
                for (int32_t highest = 0; highest <= 2; ++highest) {
                    platform_domain_agree(D, "adjusted", agreed);
                    zur_instance header = {&type, variant, layout, 0, 0};
                    const int8_t wanted = std::max(variant, std::min({agreed, layout, static_cast<int8_t>(highest)}));
                    announced.clear();
                    zurlib_adjust_variant(D, set_id, &header, &type, highest, &st);
                    EXPECT_EQ(header.variant, wanted);
                    ASSERT_EQ(announced.size(), wanted != variant ? 1u : 0u);
                    if (wanted != variant) {
                        EXPECT_EQ(announced[0], (Announcement{&header.variant, 1, ""}));
                        EXPECT_EQ(announced[0].before[0], variant);
                    }
                }
    platform_domain_clear_agreement(D);
    zur_instance header = {&type, 0, 2, 0, 0};
    zurlib_adjust_variant(D, set_id, &header, nullptr, 2, &st);
    zurlib_adjust_variant(D, set_id, nullptr, nullptr, 2, &st);
    st = 43;
    zurlib_adjust_variant(D, set_id, &header, &type, 2, &st);
    EXPECT_EQ(header.variant, 0);
}

TEST_F(Platform, FlagBlocksAreFoundAgain) {
    const zur_type_info type = made_type("placed");
    zur_instance one = {&type, 2, 2, 0x08, 0};
    zur_instance two = one;
    EXPECT_EQ(D->hd_mapping_root, 0u);
    zurlib_update_sttr_offset(D, set_id, &one, 40);
    zurlib_update_sttr_offset(D, set_id, &two, 50);
    zurlib_update_sttr_offset(D, set_id, &two, 60);
    EXPECT_THAT(announced, ElementsAre(Announcement{&one.flags, 1, ""}, Announcement{&two.flags, 1, ""}));
    EXPECT_EQ(one.flags, 0x48);
    EXPECT_EQ(zurlib_get_sttr_offset(D, set_id, &one), 40u);
    EXPECT_EQ(zurlib_get_sttr_offset(D, set_id, &two), 60u);
    zur_hd_mapping_destroy(D, set_id, &one, &st);
    EXPECT_EQ(one.flags, 0x08);
    EXPECT_NE(D->hd_mapping_root, 0u);
    EXPECT_EQ(zurlib_get_sttr_offset(D, set_id, &one), 32u) << "behind the fields";
    zur_hd_mapping_destroy(D, set_id, &two, &st);
    EXPECT_EQ(D->hd_mapping_root, 0u);
    // An address without an entry may be anything: it is not looked at.
    zur_hd_mapping_destroy(D, set_id, reinterpret_cast<void*>(8), &st);
    EXPECT_EQ(take_status(), 0u);
}

void count_destroy(zur_domain* D, uint32_t S, void* instance) {
    uint32_t st = 0;
    EXPECT_NE(zur_request_oid_mapping_destroy(D, S, instance, &st), 0u);
    ++static_cast<zur_instance*>(instance)->unused;
}

TEST_F(Platform, ReferencesPutADestructionOff) {
    zur_instance object = {};
    EXPECT_EQ(zur_request_oid_mapping_destroy(D, set_id, &object, &st), 0u);
    EXPECT_EQ(take_status(), 2u) << "no mapping";
    EXPECT_EQ(platform_oid_assign(D, set_id, &object, 0, nullptr), 22u);
    EXPECT_EQ(platform_oid_assign(D, set_id, &object, 0x1'0000'0005, count_destroy), 0u);
    EXPECT_EQ(object.flags, ZUR_HAS_OID);
    EXPECT_EQ(zur_get_luid(D, set_id, &object, &st), 5u);
    platform_oid_add_reference(D, 0x1'0000'0005);
    platform_oid_add_reference(D, 0x1'0000'0005);
    EXPECT_EQ(zur_request_oid_mapping_destroy(D, set_id, &object, &st), 0u);
    EXPECT_EQ(take_status(), 0u);
    zurlib_lookup_and_update_oid_ref_count(D, set_id, 0x1'0000'0005, 0, &st);
    EXPECT_EQ(object.unused, 0);
    zurlib_lookup_and_update_oid_ref_count(D, set_id, 0x1'0000'0005, 0, &st);
    EXPECT_EQ(object.unused, 1);
    EXPECT_EQ(object.flags, 0);
    EXPECT_EQ(take_status(), 0u);
    zurlib_lookup_and_update_oid_ref_count(D, set_id, 0x1'0000'0005, 0, &st);
    EXPECT_EQ(take_status(), 2u);

    zur_mac_addr mac = {};
    const uint64_t oids[3] = {3, 1, 2};
    uint64_t out[3] = {};
    platform_field_set_oids(D, &mac, oids, 3);
    EXPECT_EQ(zur_mac_addr_get_oid_count(D, set_id, &mac, &st), 3u);
    zur_mac_addr_get_object_references(D, set_id, &mac, out, 2, &st);
    EXPECT_THAT(out, ElementsAre(3, 1, 0));
    platform_field_set_oids(D, &mac, out, 3);
    zur_mac_addr_get_object_references(D, set_id, &mac, out, 3, &st);
    EXPECT_EQ(take_status(), 22u) << "0 is no OID";
    zur_mac_addr_destroy_internal(D, set_id, &mac, 0);
    EXPECT_EQ(zur_mac_addr_get_oid_count(D, set_id, &mac, &st), 0u);
    EXPECT_EQ(zur_mac_addr_get_oid_count(D, set_id, nullptr, &st), 0u);
    EXPECT_EQ(take_status(), 22u);
}

TEST_F(Platform, StoresHoldCopiesOfTypeInfos) {
    start({.tracking = 0,
           .store_mode = 2,
           .workspace_size = 100,
           .obj_store = nullptr,
           .obj_alloc_fn = nullptr,
           .obj_free_fn = nullptr});
    aaa_tlv tlv = {};
    aaa_tlv_initialize(D, set_id, &tlv, &_aaa_tlv_type_info_internal, 1, 0, 4, nullptr, &st);
    const zur_type_info* copy = tlv.type_info;
    ASSERT_NE(copy, &_aaa_tlv_type_info_internal);
    EXPECT_EQ(D->type_lookup_fn(D->type_table, 3, copy->hex_digest), copy);
    EXPECT_EQ(copy->plain_counters, 2u);
    EXPECT_EQ(copy->variant_table->records[0].used_length, 32u);
    EXPECT_EQ(copy->variant_table->records[0].created, 1u);
    zur_update_variant_info(D, set_id, const_cast<zur_type_info*>(copy), &_aaa_tlv_type_info_internal, 0);
    EXPECT_EQ(copy->variant_table->records[0].created, 1u) << "a refresh keeps the counters";
    EXPECT_EQ(tlv.flags, ZUR_NESTED);
    ASSERT_EQ(platform_instance_separate_header(D, set_id, reinterpret_cast<zur_instance*>(&tlv)), 0u);
    EXPECT_EQ(zur_get_manifested_type_info(&tlv), copy);
    EXPECT_EQ(*zur_get_manifested_type_info_ptr_mem(&tlv), copy);
    aaa_tlv_destroy_internal(D, set_id, &tlv, 0);
    EXPECT_EQ(copy->variant_table->records[0].destroyed, 1u);
    store_free(&store, set_id, const_cast<zur_type_info*>(tlv.type_info));

    D->type_alloc_fn = [](void*, uint32_t, size_t) -> void* { return nullptr; };
    sess_mgr_conn_hdl handle = {};
    sess_mgr_conn_hdl_initialize(D, set_id, &handle, &_sess_mgr_conn_hdl_type_info_internal, 1, 1, 0, nullptr, &st);
    EXPECT_EQ(handle.type_info, &_sess_mgr_conn_hdl_type_info_internal);

    void* workspace = nullptr;
    uint32_t size = 0;
    zurlib_get_handle_ws(D, &workspace, &size, nullptr);
    EXPECT_NE(workspace, nullptr);
    EXPECT_EQ(size, 100u);
}

TEST_F(Platform, CountersOfManyThreads) {
    const zur_type_info type = made_type("counted");
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            zur_domain* own = platform_domain_create(nullptr);
            uint32_t code = 0;
            for (int n = 0; n < 10000; ++n)
                zurlib_type_stats_create_object(own, set_id, &type, &made_records[1].created, &code);
            zurlib_type_stats_destroy_object(own, set_id, &type, &made_records[1].created, &code);
            zurlib_type_stats_create_object(own, set_id, &type, &made_records[0].created, &code);
            platform_domain_destroy(own);
        });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(made_records[1].created, 40000u);
    EXPECT_EQ(made_records[1].destroyed, 4u);
    EXPECT_EQ(made_records[0].created, 0u);
}

// Calls a text writer at every size and holds it to the one that had room.
void expect_cut_cleanly(zur_domain* D, const std::function<uint32_t(char*, uint32_t, uint32_t*)>& write) {
    char whole[512];
    uint32_t st = 0;
    const uint32_t length = write(whole, sizeof whole, &st);
    ASSERT_EQ(st, 0u);
    ASSERT_EQ(std::strlen(whole), length);
    for (uint32_t size = 0; size <= length + 1; ++size) {
        std::string buffer(length + 2, '\x5A');
        const uint32_t written = write(buffer.data(), size, &st);
        EXPECT_EQ(written, size != 0 ? size - 1 : 0);
        EXPECT_EQ(st, size <= length ? 28u : 0u);
        EXPECT_TRUE(st == 0 || D->last_error == st);
        EXPECT_EQ(buffer.substr(0, written), std::string(whole, written));
        if (size != 0) {
            EXPECT_EQ(buffer[written], 0);
        }
        EXPECT_EQ(buffer.substr(size), std::string(buffer.size() - size, '\x5A'));
        st = 0;
    }
    for (const uint32_t wrapped : {0xFFFFFFFFu, 0x80000000u}) {
        char untouched = '\x5A';
        EXPECT_EQ(write(&untouched, wrapped, &st), 0u);
        EXPECT_EQ(std::exchange(st, 0), 28u);
        EXPECT_EQ(untouched, '\x5A');
    }
}

TEST_F(Platform, TextOfEveryTypeAtEverySize) {
    for (const Type& type : types()) {
        SCOPED_TRACE(type.name);
        Object object(D, type, true);
        char line[200];
        type.field.print(D, set_id, line, 3, "field", object, sizeof line, &st);
        EXPECT_EQ(line, "   field@" + std::string(type.name) + ":" + type.text + "\n");
        type.field.to_xml(D, set_id, "field", line, object, sizeof line, 2, &st);
        EXPECT_EQ(line, "<field flag=\"2\">" + std::string(type.text) + "</field>");
        expect_cut_cleanly(D, [&](char* buffer, uint32_t size, uint32_t* code) {
            return type.field.print(D, set_id, buffer, 3, "field", object, size, code);
        });
        expect_cut_cleanly(D, [&](char* buffer, uint32_t size, uint32_t* code) {
            return type.field.to_xml(D, set_id, "field", buffer, object, size, 2, code);
        });
    }
    expect_cut_cleanly(D, [&](char* buffer, uint32_t size, uint32_t* code) {
        return zur_snprintf(D, set_id, buffer, size, code, "%s-%d", "twelve", 12);
    });
    expect_cut_cleanly(D, [&](char* buffer, uint32_t size, uint32_t* code) {
        return xml_enum_print(D, set_id, buffer, "<A_NAME/>", size, 9, code);
    });
    expect_cut_cleanly(D, [&](char* buffer, uint32_t size, uint32_t* code) {
        return var_string_print(D, set_id, buffer, 2, "name", "tab\tand \\", size, 9, code);
    });
    char blanks[8] = "abcdefg";
    EXPECT_EQ(zur_print_space(D, set_id, blanks, 3, sizeof blanks, &st), 3u);
    EXPECT_STREQ(blanks, "   defg") << "no terminator: the text behind stands already";
    EXPECT_EQ(zur_print_space(D, set_id, blanks, 5, 5, &st), 0u);
    EXPECT_STREQ(blanks, "   defg") << "blanks that do not fit would need a terminator";
    EXPECT_EQ(st, 28u);
    EXPECT_EQ(start_tag(D, set_id, blanks, "x", sizeof blanks, 0, &st), 0u);
    EXPECT_EQ(end_tag(D, set_id, blanks, "x", sizeof blanks, &st), 4u) << "tags balance also after a failure";
    EXPECT_STREQ(blanks, "</x>");
    EXPECT_EQ(st, 28u);
}

TEST_F(Platform, XmlGivesValuesBack) {
    for (const Type& type : types()) {
        SCOPED_TRACE(type.name);
        const std::string text = type.text;
        const Document document = parse("<r><f flag='2'>" + text + "</f><bad>" + type.bad_text + "</bad><e/></r>");
        Object object(D, type, false);
        const std::string empty = object.image();
        char message[100] = "";
        type.field.from_xml(D, set_id, "r/none", document.get(), object, &st, message, sizeof message);
        EXPECT_EQ(take_status(), 2u);
        EXPECT_STREQ(message, "");
        type.field.from_xml(D, set_id, "r/bad", document.get(), object, &st, message, sizeof message);
        EXPECT_EQ(take_status(), 22u);
        EXPECT_EQ(message, std::string("r/bad: not a value of type ") + type.name);
        EXPECT_EQ(object.image(), empty);
        type.field.from_xml(D, set_id, "r/f", document.get(), object, &st, message, 5);
        EXPECT_EQ(object.image(), type.wire);
        type.field.from_xml(D, set_id, "r/e", document.get(), object, &st, nullptr, 0);
        EXPECT_TRUE(object.image() == type.wire || object.image() == empty);
        EXPECT_EQ(take_status(), 0u);
    }
    const Document addresses = parse("<r><a>\n 2001:db8::1 </a></r>");
    ip_address address = {};
    ip_address_from_xml(D, set_id, "r/a", addresses.get(), &address, &st, nullptr, 0);
    char line[60];
    ip_address_print(D, set_id, line, 0, "a", &address, sizeof line, &st);
    EXPECT_STREQ(line, "a@ip_address:2001:db8::1\n");
}

TEST_F(Platform, XmlCarriesEveryByte) {
    std::vector<std::string> texts = {" ",
                                      "   ",
                                      "\n",
                                      " lead and trail \t",
                                      "]]>",
                                      "&amp;",
                                      "\\",
                                      "\\41",
                                      "a\xC3",
                                      "\xED\xA0\x80 \xF4\x90\x80\x80 \xC0\xAF \xEF\xBF\xBE",
                                      "gr\xC3\xBC\xC3\x9F \xF0\x9F\x98\x80"};
    std::string all;
    for (int c = 1; c <= 255; ++c) {
        all += static_cast<char>(c);
        texts.push_back(std::string(1, static_cast<char>(c)));
        texts.push_back("x" + std::string(1, static_cast<char>(c)) + "y");
    }
    texts.push_back(all);
    texts.push_back(std::string(all.rbegin(), all.rend()));
    for (const std::string& text : texts) {
        const auto size = static_cast<uint32_t>(text.size());
        char xml[2000];
        var_string_to_xml(D, set_id, "r", xml, text.data(), sizeof xml, size, 0, &st);
        for (const char* p = xml; *p != 0; ++p)
            EXPECT_GE(static_cast<unsigned char>(*p), 0x20) << "one line stays one line";
        const Document document = parse(xml);
        uint32_t length = 0;
        EXPECT_EQ(xml_get_element_value(document.get(), "r", nullptr, 0, &length), 28u);
        ASSERT_EQ(length, size);
        std::string read(length + 1, '\x5A');
        var_string_from_xml(D, set_id, "r", document.get(), read.data(), length + 1, &st, nullptr, 0);
        EXPECT_EQ(read, text + '\0');
        zur_vstring object = {};
        zur_vstring_from_xml(D, set_id, "r", document.get(), &object, &st, nullptr, 0);
        EXPECT_EQ(std::string(platform_zur_vstring_read(&object, nullptr), object.length), text);
        zur_vstring_destroy_internal(D, set_id, &object, 0);
        EXPECT_EQ(take_status(), 0u);
    }
    char six[6] = {'x', 'x', 'x', 'x', 'x', 'x'};
    null_string_from_xml(D, set_id, "r", parse("<r>abcd</r>").get(), six, 6, &st, nullptr, 0);
    EXPECT_EQ(std::string(six, 6), std::string("abcd\0\0", 6));
    null_string_from_xml(D, set_id, "r", parse("<r>abcdef</r>").get(), six, 6, &st, nullptr, 0);
    char xml[40];
    null_string_to_xml(D, set_id, "r", xml, six, sizeof xml, 6, 0, &st);
    EXPECT_STREQ(xml, "<r>abcdef</r>") << "a full array has no terminator";
    EXPECT_EQ(take_status(), 0u);
    null_string_from_xml(D, set_id, "r", parse("<r>ghijklm</r>").get(), six, 6, &st, xml, sizeof xml);
    EXPECT_EQ(take_status(), 28u);
    EXPECT_STREQ(xml, "r: text too long");
    EXPECT_EQ(std::string(six, 6), "abcdef");
}

TEST_F(Platform, PathsFindElements) {
    const Document document = parse("<r><!-- c --><a>1</a><b/><a>2</a><l><a>31</a></l><l>t<a>41</a><a>42<i/></a></l>"
                                    "<c>x<![CDATA[<y>]]><!-- -->z</c></r>");
    const auto value = [&](const char* path) -> std::string {
        char buffer[8];
        uint32_t length = 0;
        const uint32_t code = xml_get_element_value(document.get(), path, buffer, sizeof buffer, &length);
        EXPECT_TRUE(code != 0 || std::strlen(buffer) == length);
        return code != 0 ? "error " + std::to_string(code) : buffer;
    };
    const auto count = [&](const char* path) {
        uint32_t number = 99;
        EXPECT_EQ(xml_get_element_nodecount(document.get(), path, &number), 0u);
        return number;
    };
    EXPECT_EQ(value("r/a"), "1");
    EXPECT_EQ(value("r/a[1]"), "1");
    EXPECT_EQ(value("r/a[2]"), "2");
    EXPECT_EQ(value("r/l/a"), "31");
    EXPECT_EQ(value("r[1]/l[2]/a[2]"), "42");
    EXPECT_EQ(value("r/b"), "");
    EXPECT_EQ(value("r/c"), "x<y>z");
    for (const char* absent : {"", "/", "r/", "/r", "a", "r/d", "r/a[0]", "r/a[3]", "r/a[", "r/a[]", "r/a[2", "r/a[x]",
                               "r/a[-1]", "r/a[4294967297]", "r/a[18446744073709551618]", "r[2]/a", "r/l[3]/a", "r//a"})
        EXPECT_EQ(value(absent), "error 2") << absent;
    EXPECT_EQ(count("r/a"), 2u);
    EXPECT_EQ(count("r/a[2]"), 1u);
    EXPECT_EQ(count("r/l"), 2u);
    EXPECT_EQ(count("r/l[2]/a"), 2u);
    EXPECT_EQ(count("r/d"), 0u);
    EXPECT_EQ(value(("r/" + std::string(300, 'a')).c_str()), "error 2");
    EXPECT_EQ(xml_get_element_value(nullptr, "r", nullptr, 0, nullptr), 22u);
    char two[2];
    uint32_t length = 0;
    EXPECT_EQ(xml_get_element_value(document.get(), "r/l[2]/a", two, sizeof two, &length), 28u);
    EXPECT_STREQ(two, "4");
    EXPECT_EQ(length, 2u);
}

TEST_F(Platform, HostileDocumentsAreRefused) {
    const platform_xml_limits many = {0, 0, 1000000};
    const auto refusal = [&](const std::string& text) {
        std::string message;
        EXPECT_EQ(parse(text, &message, &many), nullptr);
        return message;
    };
    std::string deep;
    for (int i = 0; i < 100000; ++i) deep += "<a>";
    EXPECT_EQ(refusal(deep + std::string(7, ' ')), "line 1, column 300007: Start-end tags mismatch");
    for (int i = 0; i < 100000; ++i) deep += "</a>";
    EXPECT_EQ(refusal(deep), "line 1, column 194: elements nested too deeply");
    EXPECT_THAT(refusal("<!DOCTYPE r [<!ENTITY a \"aaaa\"><!ENTITY b \"&a;&a;&a;\">]>\n<r>&b;</r>"),
                HasSubstr("line 1, column 11: document type declarations are not accepted"));
    EXPECT_EQ(refusal("<r>\n <a>\n  </b>\n</r>"), "line 3, column 5: Start-end tags mismatch");
    EXPECT_EQ(refusal(std::string("<r>\0</r>", 8)), "line 1, column 4: NUL byte");
    EXPECT_THAT(refusal("<a/>\n<b/>"), HasSubstr("line 2, column 2: more than one root element"));
    EXPECT_THAT(refusal(""), HasSubstr("No document element"));
    std::string message;
    const platform_xml_limits small = {100, 2, 3};
    EXPECT_NE(parse("<a><b/><c/></a>", &message, &small), nullptr);
    EXPECT_EQ(parse("<a><b/><c/><d/></a>", &message, &small), nullptr);
    EXPECT_THAT(message, HasSubstr("too many elements"));
    EXPECT_EQ(parse("<a><b><c/></b></a>", &message, &small), nullptr);
    EXPECT_EQ(parse("<a>" + std::string(94, ' ') + "</a>", &message, &small), nullptr);
    EXPECT_EQ(message, "line 1, column 101: document too large");

    const Document attributes = parse("<r x='" + std::string(1u << 20, 'x') + "'>7</r>");
    uint32_t number = 0;
    u_int32_from_xml(D, set_id, "r", attributes.get(), &number, &st, nullptr, 0);
    EXPECT_EQ(number, 7u);
    const Document entity = parse("<r>&unknown;&#65;</r>");
    char text[20];
    EXPECT_EQ(xml_get_element_value(entity.get(), "r", text, sizeof text, nullptr), 0u);
    EXPECT_STREQ(text, "&unknown;A");

    std::string siblings = "<r>";
    for (int i = 0; i < 100000; ++i) siblings += "<s>" + std::to_string(i) + "</s><t/>";
    const Document wide = parse(siblings + "</r>", nullptr, &many);
    EXPECT_EQ(parse(siblings + "</r>", &message), nullptr);
    EXPECT_THAT(message, HasSubstr("too many elements"));
    for (uint32_t i = 1; i <= 100000; ++i) {
        u_int32_from_xml(D, set_id, ("r/s[" + std::to_string(i) + "]").c_str(), wide.get(), &number, &st, nullptr, 0);
        ASSERT_EQ(number, i - 1);
    }
    EXPECT_EQ(take_status(), 0u);

    std::string whole = "<?xml version=\"1.0\"?><r a='1'><!-- c --><b>\\41&lt;</b><![CDATA[d]]><e f=\"g\"/></r>";
    for (size_t length = 0; length < whole.size(); ++length) {
        EXPECT_EQ(parse(whole.substr(0, length)), nullptr) << length;
        std::string damaged = whole;
        damaged[length] = static_cast<char>(damaged[length] ^ 0x15);
        const Document document(platform_xml_parse(damaged.data(), damaged.size(), nullptr, nullptr, 0),
                                platform_xml_free);
        xml_get_element_value(document.get(), "r/b", text, sizeof text, nullptr);
    }
}

// ---- traces ----

struct Sentences {
    std::vector<platform_trace_record> records;
};

void record_trace(void* context, const platform_trace_record* record) {
    static_cast<Sentences*>(context)->records.push_back(*record);
    __QLf_0("0123456789abcdef", 0, 0, 0); // dropped, not recursed into
}

// The texts " nothing", " lost %s after %d of %u%%" and " oid %p. Error %s" as one bzip2 stream.
const std::string packed_texts = hex("425a68393141592653592fb9354900000415804201020027e5de00200022269a32681a6d4299"
                                     "31320c8c859abace8d7041e840ca2da1d0892cc7480ce31716248154f8bb9229c284817dc9aa"
                                     "48");

// A library file with nothing but the catalogue.
std::string library_file() {
    const std::string name = std::string(".quelog_luids_") + "30313233343536373839616263646566";
    const std::string names = std::string("\0.shstrtab\0.quelog_format_strings\0", 34) + name + '\0';
    const std::string entries =
        hex("01000000") + "0123456789abcdef" + hex("01000000 0800  02000000 1900  03000009 1100");
    Elf64_Ehdr header = {};
    std::memcpy(header.e_ident, ELFMAG, SELFMAG);
    header.e_ident[EI_CLASS] = ELFCLASS64;
    header.e_ident[EI_DATA] = ELFDATA2LSB;
    header.e_ident[EI_VERSION] = EV_CURRENT;
    header.e_type = ET_DYN;
    header.e_machine = EM_X86_64;
    header.e_version = EV_CURRENT;
    header.e_ehsize = sizeof header;
    header.e_shentsize = sizeof(Elf64_Shdr);
    header.e_shnum = 4;
    header.e_shstrndx = 1;
    Elf64_Shdr sections[4] = {};
    std::string content;
    const auto place = [&](Elf64_Shdr& section, uint32_t type, uint32_t name_offset, const std::string& bytes_of) {
        section.sh_name = name_offset;
        section.sh_type = type;
        section.sh_offset = sizeof header + sizeof sections + content.size();
        section.sh_size = bytes_of.size();
        section.sh_addralign = 1;
        content += bytes_of;
    };
    place(sections[1], SHT_STRTAB, 1, names);
    place(sections[2], SHT_PROGBITS, 11, packed_texts);
    place(sections[3], SHT_PROGBITS, 34, entries);
    header.e_shoff = sizeof header;
    return std::string(reinterpret_cast<char*>(&header), sizeof header) +
           std::string(reinterpret_cast<char*>(sections), sizeof sections) + content;
}

class TemporaryFile {
public:
    explicit TemporaryFile(const std::string& content) {
        const int descriptor = mkstemp(name_);
        EXPECT_EQ(write(descriptor, content.data(), content.size()), static_cast<ssize_t>(content.size()));
        close(descriptor);
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile() { std::remove(name_); }
    const char* name() const { return name_; }

private:
    char name_[40] = "platform_test_XXXXXX";
};

using Reader = std::unique_ptr<platform_trace_reader, decltype(&platform_trace_close)>;

Reader open_library(const std::string& content, std::string* message = nullptr) {
    const TemporaryFile file(content);
    char line[200] = "";
    Reader reader(platform_trace_open(file.name(), line, sizeof line), platform_trace_close);
    EXPECT_EQ(reader == nullptr, line[0] != 0);
    if (message != nullptr) *message = line;
    return reader;
}

TEST(Trace, RecordsAreJoinedWithTheirTexts) {
    Sentences sentences;
    platform_trace_set_sink(record_trace, &sentences);
    char text[] = "the text";
    __QLf_1("0123456789abcdef", 1, 4, 0x3000000, text);
    text[0] = 'X'; // a record keeps its own copy
    __QLf_444("0123456789abcdef", 1, 4, 0x6000000, 1, 2, 3);
    __QLf_51("0123456789abcdef", 2, 4, 0x7000000, 0xA1B2C3D4E5F6, std::string(500, 'e').c_str());
    __QLf_0("0123456789abcdef", 0, 4, 0);
    __QLf_0("0123456789abcdeX", 0, 4, 0);
    __QLf_0("0123456789abcdef", 3, 4, 0);
    platform_trace_set_sink(nullptr, nullptr);
    __QLf_0("0123456789abcdef", 0, 4, 0);
    ASSERT_EQ(sentences.records.size(), 6u);
    EXPECT_EQ(sentences.records[0].level, 3u);
    EXPECT_EQ(sentences.records[0].module, 4u);

    const Reader reader = open_library(library_file());
    ASSERT_NE(reader, nullptr);
    EXPECT_EQ(platform_trace_count(reader.get()), 3u);
    EXPECT_EQ(std::memcmp(platform_trace_digest(reader.get()), "0123456789abcdef", 16), 0);
    uint32_t length = 0;
    uint32_t luid = 0;
    EXPECT_EQ(std::string(platform_trace_text(reader.get(), 2, &length, &luid), 17), " oid %p. Error %s");
    EXPECT_EQ(length, 17u);
    EXPECT_EQ(luid, 0x09000003u);
    const auto joined = [&](size_t i) {
        char sentence[300];
        const size_t size = platform_trace_join(reader.get(), &sentences.records[i], sentence, sizeof sentence);
        EXPECT_EQ(size, std::strlen(sentence));
        return std::string(sentence);
    };
    EXPECT_EQ(joined(0), " lost the text after %d of %u%");
    EXPECT_EQ(joined(1), " lost %s after 1 of 2%");
    EXPECT_EQ(joined(2), " oid 0xa1b2c3d4e5f6. Error " + std::string(PLATFORM_TRACE_TEXT - 1, 'e'));
    EXPECT_EQ(joined(3), " nothing");
    EXPECT_EQ(joined(4), "") << "another catalogue";
    EXPECT_EQ(joined(5), "") << "no such entry";
    char small[6];
    EXPECT_EQ(platform_trace_join(reader.get(), &sentences.records[3], small, sizeof small), 8u);
    EXPECT_STREQ(small, " noth");
}

TEST(Trace, DamagedLibraryFiles) {
    const std::string good = library_file();
    std::string message;
    EXPECT_EQ(open_library("", &message), nullptr);
    EXPECT_THAT(message, HasSubstr("not an ELF file"));
    EXPECT_EQ(platform_trace_open("no such file", nullptr, 0), nullptr);
    size_t sound = 0;
    for (size_t at = 0; at < good.size(); ++at) {
        EXPECT_EQ(open_library(good.substr(0, at)), nullptr) << at;
        for (const int change : {0x01, 0x80, 0xFF}) {
            std::string damaged = good;
            damaged[at] = static_cast<char>(damaged[at] ^ change);
            const Reader reader = open_library(damaged);
            if (reader == nullptr) continue;
            ++sound;
            uint32_t length = 0;
            size_t sum = 0;
            for (uint32_t i = 0; i < platform_trace_count(reader.get()); ++i) {
                const char* text = platform_trace_text(reader.get(), i, &length, nullptr);
                sum += std::string(text, length).size(); // reads it all
            }
            EXPECT_EQ(sum, 50u);
        }
    }
    EXPECT_GT(sound, 0u) << "some bytes carry nothing";
}

TEST(Trace, ModulesGetTheirIdsOnce) {
    uint16_t one = 0;
    uint16_t two = 0;
    uint16_t again = 0;
    uint32_t state[3] = {};
    EXPECT_EQ(quelog_module_init_fn("one", &one, &state[0]), 0);
    EXPECT_EQ(quelog_module_init_fn("two", &two, &state[1]), 0);
    EXPECT_EQ(quelog_module_init_fn("one", &again, &state[2]), 0);
    EXPECT_NE(one, 0);
    EXPECT_NE(one, two);
    EXPECT_EQ(one, again);
    one = 77;
    EXPECT_EQ(quelog_module_init_fn("one", &one, &state[0]), 0);
    EXPECT_EQ(one, 77) << "the state word says that it is done";
    EXPECT_STREQ(platform_trace_module_name(two), "two");
    EXPECT_EQ(platform_trace_module_name(0), nullptr);
}

TEST(Siblings, HandlersAndRanges) {
    char handlers[2];
    EXPECT_EQ(credrelay_bundle_handler_register(&handlers[0]), nullptr);
    EXPECT_EQ(credrelay_bundle_handler_register(&handlers[1]), &handlers[0]);
    EXPECT_EQ(credrelay_bundle_handler_unregister(), &handlers[1]);
    EXPECT_EQ(credrelay_bundle_handler_unregister(), nullptr);

    uint64_t link = 0;
    int most = 16;
    EXPECT_EQ(lumeo_set_range(handlers, &link, 8, set_id), 1);
    EXPECT_EQ(lumeo_set_range(nullptr, &link, 8, set_id), 0);
    platform_set_range_judge(
        [](void* context, void*, void*, uint32_t length, uint32_t) {
            return length <= static_cast<uint32_t>(*static_cast<int*>(context)) ? 1 : 0;
        },
        &most);
    EXPECT_EQ(lumeo_set_range(handlers, &link, 16, set_id), 1);
    EXPECT_EQ(lumeo_set_range(handlers, &link, 17, set_id), 0);
    platform_set_range_judge(nullptr, nullptr);
    testing::internal::CaptureStderr();
    lumeo_perror();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "lumeo: the store refused the range\n");
}

} // namespace
