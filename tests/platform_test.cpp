// The stand-in runtime by itself, as far as the tests of the Bundle lean on it: wire forms, hashes, variants, text in
// both directions, paths, hostile documents and library files. What the Bundle makes of them is tested with the Bundle.
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
#include <type_traits>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

using testing::HasSubstr;

constexpr uint32_t set_id = 7;

void* store_alloc(void* store, uint32_t, size_t size) {
    return *static_cast<std::set<void*>*>(store)->insert(std::malloc(size)).first;
}

void store_free(void* store, uint32_t, void* block) {
    EXPECT_EQ(static_cast<std::set<void*>*>(store)->erase(block), 1u) << "freed twice, or never given";
    std::free(block);
}

class Platform : public testing::Test {
protected:
    Platform() {
        platform_domain_options options = {};
        options.obj_store = &store;
        options.obj_alloc_fn = store_alloc;
        options.obj_free_fn = store_free;
        D = platform_domain_create(&options);
    }
    ~Platform() override {
        platform_domain_destroy(D);
        EXPECT_TRUE(store.empty()) << "blocks that nobody has released";
    }

    // Each failure must also stand in the Domain.
    uint32_t take_status() {
        EXPECT_EQ(D->last_error, st);
        return std::exchange(st, 0);
    }

    std::set<void*> store; ///< the blocks that are alive
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
};

using Fill = std::function<void(zur_domain*, void*, uint32_t*)>;

// One foreign type with a value to be told from all others, and its wire form by hand.
struct Type {
    const char* name;
    FieldOperations field;
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
    { type##_len, type##_marshal, type##_unmarshal, type##_print, type##_to_xml, type##_from_xml }
#define VALUE(type) #type, FIELD(type), nullptr
#define RECORD(type) #type, FIELD(type), type##_destroy_internal

const std::vector<Type>& types() {
    static const std::vector<Type> list = {
        {VALUE(u_int8), hex("a1"), "161", "256", with(u_int8_set_value, 0xA1)},
        {VALUE(u_int16), hex("a1b2"), "41394", "65536", with(u_int16_set_value, 0xA1B2)},
        {VALUE(u_int32), hex("a1b2c3d4"), "2712847316", "-1", with(u_int32_set_value, 0xA1B2C3D4)},
        {VALUE(u_int64), hex("a1b2c3d4e5f60718"), "11651590505119483672", "0x10",
         with(u_int64_set_value, 0xA1B2C3D4E5F60718)},
        {VALUE(char), hex("fd"), "-3", "128", with(char_set_value, -3)},
        {VALUE(zur_boolean), hex("00000001"), "1", "two", with(zur_boolean_set_value, 1)},
        {VALUE(sm_auth_domain), hex("00 00000002"), "2", "two", with(sm_auth_domain_set_value, 2)},
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

// A zeroed object of a type, which is destroyed at the end.
class Object {
public:
    Object(zur_domain* D, const Type& type, bool filled) : domain_(D), type_(type) {
        uint32_t code = 0;
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

// Hashes may be stored, so they must stay: every tail's length, with bytes above 127.
TEST_F(Platform, HashesStay) {
    const uint32_t pinned[] = {17, 0xFBE447C2, 0x4A4E1505, 0x76B843C6, 0x8A705D71, 0x4A1926D6, 0xAD3F928D, 0xF0150F91};
    for (uint32_t length = 0; length < 8; ++length)
        EXPECT_EQ(SuperFastHash("\x80\x91\xA2\xB3\xC4\xD5\xE6", length, length != 0 ? 0x1234 : 17), pinned[length]);
}

zur_type_info made_type(const char* name) {
    static const zur_variant_record records[] = {{0, 20, 12, 0, 0, 0}, {1, 24, 8, 0, 0, 0}, {2, 32, 0, 0, 0, 0}};
    static const zur_variant_table table = {3, const_cast<zur_variant_record*>(records)};
    zur_type_info type = {};
    type.magic = ZUR_TYPE_INFO_MAGIC;
    std::strncpy(type.name, name, sizeof type.name - 1);
    std::memcpy(type.digest, name, std::strlen(name));
    type.variant_table = &table;
    return type;
}

TEST_F(Platform, VariantsAreAgreedByNameAndOnlyRaised) {
    const zur_type_info one = made_type("one");
    const zur_type_info two = made_type("two");
    const auto agreed = [&](const zur_type_info* type) {
        return static_cast<int8_t>(zur_domain_lookup_variant(D, &D->variant_context, type, &st));
    };
    EXPECT_EQ(agreed(&one), PLATFORM_HIGHEST_VARIANT);
    platform_domain_agree(D, "one", 1);
    platform_domain_agree_all(D, 0);
    platform_domain_agree(D, "two", -1);
    std::vector<zur_type_info> many(100, one);
    for (zur_type_info& type : many) EXPECT_EQ(agreed(&type), 1);
    many[5] = two; // another type at the address of one that is gone
    EXPECT_EQ(agreed(&many[5]), -1);
    EXPECT_EQ(agreed(&_aaa_tlv_type_info_internal), 0);
    for (int8_t variant = -1; variant <= 2; ++variant)
        for (int8_t layout = 0; layout <= 2; ++layout)
            for (int8_t peer = -1; peer <= 3; ++peer)
                for (int32_t highest = 0; highest <= 2; ++highest) {
                    platform_domain_agree(D, "one", peer);
                    zur_instance header = {&one, variant, layout, 0, 0};
                    zurlib_adjust_variant(D, set_id, &header, &one, highest, &st);
                    EXPECT_EQ(header.variant,
                              std::max(variant, std::min({peer, layout, static_cast<int8_t>(highest)})));
                }
    platform_domain_clear_agreement(D);
    EXPECT_EQ(agreed(&two), PLATFORM_HIGHEST_VARIANT);
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
    // Twice, because no reader may leave its mark in the document; and in pieces, the first of them escaped.
    for (const Type& type : types()) {
        SCOPED_TRACE(type.name);
        const std::string text = type.text;
        char first[4];
        std::snprintf(first, sizeof first, "\\%02x", static_cast<unsigned>(text[0]));
        const Document document =
            parse("<r><f>" + text + "</f><f>" + first + "<![CDATA[" + text.substr(1) + "]]></f></r>");
        for (const char* path : {"r/f[1]", "r/f[1]", "r/f[2]"}) {
            Object object(D, type, false);
            type.field.from_xml(D, set_id, path, document.get(), object, &st, nullptr, 0);
            EXPECT_EQ(object.image(), type.wire) << path;
            EXPECT_EQ(take_status(), 0u) << path;
        }
    }
    const Document addresses = parse("<r><a>\n 2001:db8::1 </a></r>");
    ip_address address = {};
    ip_address_from_xml(D, set_id, "r/a", addresses.get(), &address, &st, nullptr, 0);
    char line[60];
    ip_address_print(D, set_id, line, 0, "a", &address, sizeof line, &st);
    EXPECT_STREQ(line, "a@ip_address:2001:db8::1\n");
}

TEST_F(Platform, PathsFindElements) {
    const Document document = parse("<r><!-- c --><a>1</a><b/><a>2</a><l><a>31</a></l><l>t<a>41</a><a>42<i/></a></l>"
                                    "<c>x<![CDATA[<y>]]><!-- -->z</c></r>");
    const auto look = [&](const std::string& path, const char* wanted, uint32_t count) {
        SCOPED_TRACE(path);
        char buffer[8] = "";
        uint32_t number = 99;
        const uint32_t code = xml_get_element_value(document.get(), path.c_str(), buffer, sizeof buffer, nullptr);
        EXPECT_EQ(code, count == 0 ? 2u : 0u);
        EXPECT_STREQ(buffer, wanted);
        EXPECT_EQ(xml_get_element_nodecount(document.get(), path.c_str(), &number), 0u);
        EXPECT_EQ(number, count);
    };
    look("r/a", "1", 2), look("r/a[1]", "1", 1), look("r/a[2]", "2", 1), look("r/l/a", "31", 1), look("r/l", "", 2);
    look("r[1]/l[2]/a[2]", "42", 1), look("r/b", "", 1), look("r/c", "x<y>z", 1);
    for (const char* absent : {"", "/", "r/", "/r", "a", "r/d", "r/a[0]", "r/a[3]", "r/a[", "r/a[]", "r/a[2", "r/a[x]",
                               "r/a[-1]", "r/a[4294967297]", "r/a[18446744073709551618]", "r[2]/a", "r/l[3]/a", "r//a"})
        look(absent, "", 0);
    look("r/" + std::string(300, 'a'), "", 0);
    EXPECT_EQ(xml_get_element_value(nullptr, "r", nullptr, 0, nullptr), 22u);
    char two[2];
    uint32_t length = 0;
    EXPECT_EQ(xml_get_element_value(document.get(), "r/l[2]/a", two, sizeof two, &length), 28u);
    EXPECT_STREQ(two, "4");
    EXPECT_EQ(length, 2u);
}

// What was asked before decides where a look-up starts, not what it finds.
TEST_F(Platform, PathsFindElementsInAnyOrder) {
    const std::string text =
        "<root><abcdefgh>1</abcdefgh><abcdefghi>2</abcdefghi><a>3</a><abcdefgh>4<a>5</a><a>6</a>"
        "<a><b>7</b><b>8</b></a></abcdefgh><a><b>9</b></a><abcdefghijklmnopqrs>10</abcdefghijklmnopqrs>"
        "</root>";
    const struct {
        const char* path;
        const char* found; // null: nothing
    } paths[] = {
        {"root", ""},
        {"root/abcdefgh", "1"},
        {"root/abcdefgh[2]", "4"},
        {"root[1]/abcdefgh[2]", "4"},
        {"root/abcdefgh[3]", nullptr},
        {"root/abcdefghi", "2"},
        {"root/abcdefg", nullptr},
        {"root/abcdefghijklmnopqrs", "10"},
        {"root/abcdefghijklmnopqrt", nullptr},
        {"root/a", "3"},
        {"root/a[1]", "3"},
        {"root/a[2]", ""},
        {"root/a[02]/b", "9"},
        {"root/a[2]/b[2]", nullptr},
        {"root/a[1]/b", nullptr},
        {"root/abcdefgh[2]/a", "5"},
        {"root/abcdefgh[2]/a[2]", "6"},
        {"root/abcdefgh[2]/a[3]/b", "7"},
        {"root/abcdefgh[2]/a[3]/b[2]", "8"},
        {"root/abcdefgh[2]/a[3]/b[2]/c", nullptr},
        {"root/abcdefgh[2]/a[4]", nullptr},
        {"root/abcdefgh/a", nullptr},
        {"roo", nullptr},
        {"a", nullptr},
        {"", nullptr},
    };
    const auto expect = [](zur_xml_document* document, const auto& wanted) {
        char buffer[8] = "";
        const uint32_t code = xml_get_element_value(document, wanted.path, buffer, sizeof buffer, nullptr);
        EXPECT_EQ(code, wanted.found != nullptr ? 0u : 2u) << wanted.path;
        EXPECT_STREQ(buffer, wanted.found != nullptr ? wanted.found : "") << wanted.path;
    };
    for (const auto& before : paths)
        for (const auto& wanted : paths) {
            SCOPED_TRACE(before.path);
            const Document document = parse(text);
            expect(document.get(), before);
            expect(document.get(), wanted);
            expect(document.get(), before);
        }
}

std::string repeated(const char* text, int times) {
    std::string all;
    for (; times != 0; --times) all += text;
    return all;
}

TEST_F(Platform, HostileDocumentsAreRefused) {
    const platform_xml_limits many = {0, 0, 1000000};
    const platform_xml_limits small = {100, 2, 3};
    const struct {
        std::string text;
        platform_xml_limits limits;
        const char* message;
    } cases[] = {
        {repeated("<a>", 100000) + "       ", many, "line 1, column 300007: Start-end tags mismatch"},
        {repeated("<a>", 100000) + repeated("</a>", 100000), many, "line 1, column 194: elements nested too deeply"},
        {"<!DOCTYPE r [<!ENTITY a \"aaaa\"><!ENTITY b \"&a;&a;&a;\">]>\n<r>&b;</r>", many,
         "line 1, column 11: document type declarations are not accepted"},
        {repeated("</a>", 100000), many, "line 1"},
        {"<!DOCTYPE " + repeated("[", 100000), many, "line 1"},
        {"<a " + repeated("b='c' ", 100000), many, "line 1"},
        {"<a b='" + repeated("c", 1000000), many, "line 1"},
        {repeated("x", 17 << 20), {}, "line 1"},
        {"<a>" + repeated("<b/>", 100000) + "</a>", {}, "too many elements"},
        {"<r>\n <a>\n  </b>\n</r>", many, "line 3, column 5: Start-end tags mismatch"},
        {std::string("<r>\0</r>", 8), many, "line 1, column 4: NUL byte"},
        {"<a/>\n<b/>", many, "line 2, column 2: more than one root element"},
        {"", many, "No document element"},
        {"<a><b/><c/></a>", small, ""},
        {"<a><b/><c/><d/></a>", small, "too many elements"},
        {"<a><b><c/></b></a>", small, "elements nested too deeply"},
        {"<a>" + std::string(94, ' ') + "</a>", small, "line 1, column 101: document too large"},
    };
    for (const auto& c : cases) {
        std::string message;
        EXPECT_EQ(parse(c.text, &message, &c.limits) != nullptr, *c.message == 0);
        EXPECT_THAT(message, HasSubstr(c.message));
    }

    // Any one of very many elements is found in no time, and an entity is not.
    const Document wide = parse("<r>" + repeated("<t/><s>7</s>", 100000) + "<e>&unknown;&#65;</e></r>", nullptr, &many);
    char text[20];
    for (uint32_t i = 1; i <= 100000; ++i)
        ASSERT_EQ(xml_get_element_value(wide.get(), ("r/s[" + std::to_string(i) + "]").c_str(), text, 20, nullptr), 0u);
    EXPECT_EQ(xml_get_element_value(wide.get(), "r/e", text, sizeof text, nullptr), 0u);
    EXPECT_STREQ(text, "&unknown;A");
}

// ---- traces ----

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

TEST(Siblings, RangesAreJudged) {
    uint64_t link = 0;
    int most = 16;
    EXPECT_EQ(lumeo_set_range(&most, &link, 8, set_id), 1);
    EXPECT_EQ(lumeo_set_range(nullptr, &link, 8, set_id), 0);
    platform_set_range_judge(
        [](void* context, void*, void*, uint32_t length, uint32_t) {
            return length <= static_cast<uint32_t>(*static_cast<int*>(context)) ? 1 : 0;
        },
        &most);
    EXPECT_EQ(lumeo_set_range(&most, &link, 16, set_id), 1);
    EXPECT_EQ(lumeo_set_range(&most, &link, 17, set_id), 0);
    platform_set_range_judge(nullptr, nullptr);
    testing::internal::CaptureStderr();
    lumeo_perror();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "lumeo: the store refused the range\n");
}

} // namespace
