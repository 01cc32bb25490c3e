// The stand-in runtime by itself, where the tests of the Bundle do not lean on it: wire forms and bad texts of imported
// types, pinned hashes, agreement by name, XML paths and hostile documents, ranges that a store
// judges; refused memory and the limits of a Domain.
#include <orlan_epm.h>
#include <platform/domain.h>
#include <platform/store.h>
#include <platform/trace.h>
#include <platform/values.h>
#include <platform/xml.h>

#include <gmock/gmock.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <memory>
#include <new>
#include <sstream>

// What the libraries ask of the C++ run-time library; the nth request from now is refused.
static size_t nth_refused = 0;

[[gnu::noinline]] void* operator new(size_t size, const std::nothrow_t&) noexcept {
    return nth_refused != 0 && --nth_refused == 0 ? nullptr : std::malloc(size);
}
[[gnu::noinline]] void* operator new(size_t size) {
    void* block = operator new(size, std::nothrow);
    return block != nullptr ? block : throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* block) noexcept {
    std::free(block);
}
[[gnu::noinline]] void operator delete(void* block, size_t) noexcept {
    std::free(block);
}

namespace {

using testing::HasSubstr;

constexpr uint32_t set_id = 7;

using Domain = std::unique_ptr<zur_domain, decltype(&platform_domain_destroy)>;

Domain make_domain(const platform_domain_options* options = nullptr) {
    return {platform_domain_create(options), platform_domain_destroy};
}

using Document = std::unique_ptr<zur_xml_document, decltype(&platform_xml_free)>;

Document parse(const std::string& text, std::string* message = nullptr, const platform_xml_limits* limits = nullptr) {
    char line[200] = "";
    Document document(platform_xml_parse(text.data(), text.size(), limits, line, sizeof line), platform_xml_free);
    EXPECT_EQ(document == nullptr, line[0] != 0);
    if (message != nullptr) *message = line;
    return document;
}

std::string hex(const std::string& digits) {
    std::string bytes;
    for (size_t i = 0; i < digits.size(); i += 2)
        bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
    return bytes;
}

// ---- imported types ----

/// A type, its wire form, and a text that is none of its values; the operations are found by their names.
struct Codec {
    std::string type, wire, bad_text;

    template <class Function>
    Function operation(Function, const char* name) const {
        return reinterpret_cast<Function>(dlsym(RTLD_DEFAULT, (type + name).c_str()));
    }
};

template <class Body>
void for_each_codec(Body body) {
    std::istringstream table(
        "u_int8 a1 256 u_int16 a1b2 65536 u_int32 a1b2c3d4 -1 u_int64 a1b2c3d4e5f60718 0x10 char fd 128 "
        "zur_boolean 00000001 two sm_auth_domain 0000000002 two "
        "zur_mac_addr 001b44113ab7 00:1b:44:11:3a:g7 zur_vstring 00000003610a62 \\0g "
        "kesh_bytestr 000000030a00fe 0a0 ip_address 04c0000207 192.0.2 "
        "aaa_tlv 0000001a000000030a00fe 26 sess_mgr_conn_hdl 0102030405060708 -1 "
        "sess_mgr_client_hdl 0102030405060708 +9 sess_mgr_session_label 0102030405060708 1_0 "
        "sess_mgr_authorize_result 0000000b 4294967296");
    for (Codec codec; table >> codec.type >> codec.wire >> codec.bad_text;) {
        SCOPED_TRACE(codec.type);
        body(codec);
    }
}

TEST(Platform, TextsAreEscaped) {
    const Domain D = make_domain();
    const std::pair<std::string, std::string> rows[] = {
        {"a\x1F\x7F\\", "a\\1f\\7f\\5c"},
        {"\xC3\xA4", "\xC3\xA4"},
        {"\xC3(", "\\c3("},
        {"\xC1\x81", "\\c1\\81"},
        {"\xED\xA0\x80", "\\ed\\a0\\80"},
        {"\xEF\xBF\xBE", "\\ef\\bf\\be"},
        {"\xF0\x9F\x98\x80", "\xF0\x9F\x98\x80"},
        {"\xF4\x90\x80\x80", "\\f4\\90\\80\\80"},
        {"<&>", "&lt;&amp;&gt;"},
    };
    for (const auto& [text, written] : rows) {
        char buffer[64];
        uint32_t st = 0;
        const uint32_t length = var_string_to_xml(D.get(), set_id, "n", buffer, text.data(), sizeof buffer,
                                                  static_cast<uint32_t>(text.size()), 0, &st);
        EXPECT_EQ(std::string(buffer, length), "<n>" + written + "</n>");
    }
}

TEST(Platform, WireFormsAtEveryRoom) {
    const Domain D = make_domain();
    for_each_codec([&](const Codec& codec) {
        const auto read = codec.operation(zur_mac_addr_unmarshal, "_unmarshal");
        const auto write = codec.operation(zur_mac_addr_marshal, "_marshal");
        const auto destroy = codec.operation(zur_mac_addr_destroy_internal, "_destroy_internal");
        const std::string wire = hex(codec.wire), filler(wire.size() + 1, '\x5A');
        const auto size = static_cast<int32_t>(wire.size());
        alignas(8) zur_mac_addr object[11] = {};
        uint32_t st = 0;
        for (int32_t room = 0; room <= size; ++room) {
            // The heap block ends where the room does, so that a sanitizer sees a read beyond it.
            const std::vector<char> source(wire.begin(), wire.begin() + room);
            EXPECT_EQ(read(D.get(), set_id, room > 0 ? source.data() : "", object, room, 0, &st),
                      room == size ? wire.size() : 0);
            EXPECT_EQ(std::exchange(st, 0), room == size ? 0u : 90u);
        }
        for (int32_t room = 0; room <= size; ++room) {
            std::string buffer = filler;
            EXPECT_EQ(write(D.get(), set_id, buffer.data(), object, room, &st), room == size ? wire.size() : 0);
            EXPECT_EQ(buffer, room == size ? wire + filler[0] : filler);
            EXPECT_EQ(std::exchange(st, 0), room == size ? 0u : 90u);
        }
        if (destroy != nullptr) destroy(D.get(), set_id, object, 0);
    });
}

TEST(Platform, BadTextsLeaveNoValue) {
    const Domain D = make_domain();
    for_each_codec([&](const Codec& codec) {
        const auto from_xml = codec.operation(zur_mac_addr_from_xml, "_from_xml");
        char message[100] = "";
        alignas(8) zur_mac_addr object[11] = {}, nothing[11] = {};
        uint32_t st = 0;
        const Document document = parse("<r><bad>" + codec.bad_text + "</bad></r>");
        from_xml(D.get(), set_id, "r/none", document.get(), object, &st, message, sizeof message);
        EXPECT_EQ(std::exchange(st, 0), 2u);
        EXPECT_STREQ(message, "");
        from_xml(D.get(), set_id, "r/bad", document.get(), object, &st, message, sizeof message);
        EXPECT_EQ(st, 22u);
        EXPECT_EQ(D->last_error, 22u);
        EXPECT_EQ(message, "r/bad: not a value of type " + codec.type);
        EXPECT_EQ(std::memcmp(object, nothing, sizeof object), 0);
    });
}

// A value is read in place in the document, which this must not change, or put together from pieces.
TEST(Platform, ValuesAreReadAgainAndInPieces) {
    const Domain D = make_domain();
    const Document document = parse("<r><f>0aff</f><f>\\30a<![CDATA[f]]>f</f></r>");
    for (const char* path : {"r/f[1]", "r/f[1]", "r/f[2]"}) {
        kesh_bytestr value = {};
        uint32_t st = 0, length = 0;
        kesh_bytestr_from_xml(D.get(), set_id, path, document.get(), &value, &st, nullptr, 0);
        const uint8_t* bytes = platform_kesh_bytestr_read(&value, &length);
        EXPECT_EQ(std::string(bytes, bytes + length), "\x0a\xff") << path;
        kesh_bytestr_destroy_internal(D.get(), set_id, &value, 0);
    }
}

// Hashes may be stored, so they must stay: every tail's length, with bytes above 127.
TEST(Platform, HashesStay) {
    const uint32_t pinned[] = {17, 0xFBE447C2, 0x4A4E1505, 0x76B843C6, 0x8A705D71, 0x4A1926D6, 0xAD3F928D, 0xF0150F91};
    for (uint32_t length = 0; length < 8; ++length)
        EXPECT_EQ(SuperFastHash("\x80\x91\xA2\xB3\xC4\xD5\xE6", length, length != 0 ? 0x1234 : 17), pinned[length]);
}

TEST(Platform, VariantsAreAgreedByName) {
    const Domain D = make_domain();
    const auto agreed = [&](const zur_type_info& type) {
        uint32_t st = 0;
        return static_cast<int8_t>(zur_domain_lookup_variant(D.get(), &D->variant_context, &type, &st));
    };
    zur_type_info one = _aaa_tlv_type_info_internal;
    EXPECT_EQ(agreed(one), PLATFORM_HIGHEST_VARIANT);
    platform_domain_agree(D.get(), one.name, 1);
    platform_domain_agree_all(D.get(), 0);
    platform_domain_agree(D.get(), "two", -1);
    EXPECT_EQ(agreed(one), 1);
    std::strcpy(one.name, "two"); // another type at the address of one that is gone
    one.digest[0] ^= 1;
    EXPECT_EQ(agreed(one), -1);
    EXPECT_EQ(agreed(_sm_auth_domain_type_info_internal), 0);
    platform_domain_clear_agreement(D.get());
    EXPECT_EQ(agreed(one), PLATFORM_HIGHEST_VARIANT);
}

// ---- XML ----

// What was asked before decides where a look-up starts, not what it finds.
TEST(Platform, PathsFindElementsInAnyOrder) {
    const std::string text =
        "<r><!-- c --><abcdefgh>1</abcdefgh><abcdefghi>2</abcdefghi><a>3</a><b/><abcdefgh>4<a>5</a>"
        "<a>6</a><a><b>7</b><b>8<i/></b></a></abcdefgh><a><b>9</b></a><abcdefghijklmnopqrs>10"
        "</abcdefghijklmnopqrs><c>x<![CDATA[<y>]]><!-- -->z</c></r>";
    struct Path {
        std::string path;
        uint32_t count = 0; // of elements
        std::string value;
    };
    std::vector<Path> paths = {{}, {"r/" + std::string(300, 'a'), 0, ""}};
    std::istringstream table(
        "r*1= r/abcdefgh*2=1 r/abcdefgh[2]*1=4 r[1]/abcdefgh[2]*1=4 r/abcdefghi*1=2 r/abcdefghijklmnopqrs*1=10 r/a*2=3 "
        "r/a[1]*1=3 r/a[2]*1= r/a[02]/b*1=9 r/b*1= r/c*1=x<y>z r/abcdefgh[2]/a*3=5 r/abcdefgh[2]/a[2]*1=6 "
        "r/abcdefgh[2]/a[3]/b*2=7 r/abcdefgh[2]/a[3]/b[2]*1=8 / r/ /r a ro r/d r//a r[2]/a r/a[0] r/a[3] r/a[ r/a[] "
        "r/a[2 r/a[x] r/a[-1] r/a[4294967297] r/a[18446744073709551618] r/abcdefgh[3]/a r/abcdefg "
        "r/abcdefghijklmnopqrt r/a[2]/b[2] r/a[1]/b r/abcdefgh[2]/a[3]/b[2]/c r/abcdefgh[2]/a[4] r/abcdefgh/a");
    for (std::string entry; table >> entry;)
        if (const std::size_t end = entry.find('*'); end != entry.npos)
            paths.push_back({entry.substr(0, end), static_cast<uint32_t>(entry[end + 1] - '0'), entry.substr(end + 3)});
        else
            paths.push_back({entry, 0, ""});
    const auto expect = [](zur_xml_document* document, const Path& wanted) {
        char buffer[8] = "";
        uint32_t number = 99;
        EXPECT_EQ(xml_get_element_value(document, wanted.path.c_str(), buffer, sizeof buffer, nullptr),
                  wanted.count == 0 ? 2u : 0u)
            << wanted.path;
        EXPECT_EQ(buffer, wanted.value) << wanted.path;
        EXPECT_EQ(xml_get_element_nodecount(document, wanted.path.c_str(), &number), 0u);
        EXPECT_EQ(number, wanted.count) << wanted.path;
    };
    for (const Path& before : paths)
        for (const Path& wanted : paths) {
            SCOPED_TRACE(before.path);
            const Document document = parse(text);
            for (const Path* path : {&before, &wanted, &before}) expect(document.get(), *path);
        }
    EXPECT_EQ(xml_get_element_value(nullptr, "r", nullptr, 0, nullptr), 22u);
    char two[2];
    uint32_t length = 0;
    EXPECT_EQ(xml_get_element_value(parse(text).get(), "r/abcdefghijklmnopqrs", two, sizeof two, &length), 28u);
    EXPECT_STREQ(two, "1");
    EXPECT_EQ(length, 2u);
}

std::string repeated(const char* text, int times) {
    std::string all;
    for (; times != 0; --times) all += text;
    return all;
}

TEST(Platform, HostileDocumentsAreRefused) {
    const platform_xml_limits many = {0, 0, 1000000}, small = {100, 2, 3};
    const struct {
        std::string text;
        platform_xml_limits limits;
        const char* message;
    } cases[] = {
        {repeated("<a>", 100000) + "       ", many, "line 1, column 300007: Start-end tags mismatch"},
        {repeated("<a>", 100000) + repeated("</a>", 100000), many, "line 1, column 194: elements nested too deeply"},
        {"<!DOCTYPE r [<!ENTITY a \"aaaa\"><!ENTITY b \"&a;&a;&a;\">]>\n<r>&b;</r>", many,
         "line 1, column 11: document type declarations are not accepted"},
        {"<a b='" + repeated("c", 1000000), many, "line 1"},
        {repeated("x", 17 << 20), {}, "line 1"},
        {"<a>" + repeated("<b/>", 8191) + "</a>", {}, ""},
        {"<a>" + repeated("<b/>", 8192) + "</a>", {}, "too many elements"},
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

// ---- memory ----

using List = rcl_client_intf_templ_list;

uint32_t grow(zur_domain* D, List* x) {
    uint32_t st = 0;
    auto* source = rcl_client_intf_templ_create(D, set_id);
    for (uint32_t i = 0; i < 20; ++i) rcl_client_intf_templ_list_data_set(D, set_id, x, i, source, 1, &st);
    rcl_client_intf_templ_destroy(D, set_id, source);
    return st;
}

std::string list_message; // for what reads

// What may ask for memory in a tracking Domain, and how it ends.
const struct {
    const char* name;
    uint32_t (*run)(zur_domain* D, List* x);
} refusable[] = {
    {"agree", [](auto* D, auto*) { return platform_domain_agree(D, "longer than what fits into a string", 1); }},
    {"oid_assign", [](auto* D, auto* x) { return platform_oid_assign(D, set_id, x, 5, nullptr); }},
    {"field_set_oids", [](auto* D, auto* x) { return platform_field_set_oids(D, x, std::begin({uint64_t{5}}), 1); }},
    {"module",
     [](auto*, auto*) {
         uint16_t id = 0;
         uint32_t state = 0;
         return static_cast<uint32_t>(quelog_module_init_fn("longer than what fits into a string", &id, &state));
     }},
    {"trace_open",
     [](auto*, auto*) {
         char line[200] = "";
         platform_trace_reader* reader = platform_trace_open(EPM_LIBRARY_FILE, line, sizeof line);
         platform_trace_close(reader);
         return reader != nullptr ? 0u : std::strstr(line, ": out of memory") != nullptr ? 12u : 99u;
     }},
    {"create in a store",
     [](auto* D, auto*) {
         D->store_mode = 1;
         auto* y = orlan_ial_vlan_group_info_create(D, set_id);
         const uint32_t code = D->last_error;
         orlan_ial_vlan_group_info_destroy(D, set_id, y);
         D->store_mode = 0;
         return code;
     }},
    {"grow", grow},
    {"unmarshal",
     [](auto* D, auto* x) {
         uint32_t st = 0;
         rcl_client_intf_templ_list_unmarshal(D, set_id, list_message.data(), x,
                                              static_cast<int32_t>(list_message.size()), 0, &st);
         return st;
     }},
};

TEST(Platform, RefusedMemoryEndsAsTwelve) {
    const char* preloaded = std::getenv("LD_PRELOAD");
    if (preloaded != nullptr && std::strstr(preloaded, "vgpreload")) GTEST_SKIP() << "valgrind brings its own new";
    platform_domain_options options{};
    options.tracking = ZUR_TRACKED_MODE;
    for (const auto& call : refusable)
        for (size_t n = 1, left = 0; left == 0; ++n) {
            SCOPED_TRACE(call.name + (" " + std::to_string(n)));
            const Domain D = make_domain(&options);
            List* x = rcl_client_intf_templ_list_create(D.get(), set_id);
            nth_refused = n;
            uint32_t code = call.run(D.get(), x);
            left = std::exchange(nth_refused, 0);
            EXPECT_EQ(code, left != 0 ? 0u : 12u);
            EXPECT_FALSE(n == 1 && left != 0) << "asks for no memory";
            EXPECT_EQ(code != 0 && call.run != grow ? call.run(D.get(), x) : 0u, 0u) << "again, with enough memory";
            std::string wire(rcl_client_intf_templ_list_len(D.get(), set_id, x) + 1, 0); // and still it is sound
            const auto room = static_cast<int32_t>(wire.size());
            uint32_t st = 0;
            wire.resize(rcl_client_intf_templ_list_marshal(D.get(), set_id, wire.data(), x, room, &st));
            EXPECT_EQ(st, 0u);
            if (code == 0 && call.run == grow) list_message = wire;
            rcl_client_intf_templ_list_destroy(D.get(), set_id, x);
        }
}

TEST(Platform, DomainsAreLimited) {
    const Domain D = make_domain();
    const auto expect_refusal = [](const Domain& of, const char* words) {
        ASSERT_NE(platform_domain_refusal(of.get()), nullptr);
        EXPECT_THAT(platform_domain_refusal(of.get()), HasSubstr(words));
    };
    auto* x = orlan_ial_svm_fqdn_data_create_create(D.get(), set_id);
    uint32_t st = 0;
    orlan_ial_svm_fqdn_data_create_unmarshal(D.get(), set_id, hex("00000000000840000000").data(), x, 10, 0, &st);
    EXPECT_EQ(std::exchange(st, 0), 12u);
    expect_refusal(D, "1073741825 bytes is refused: the block_limit is 1048576");
    orlan_ial_svm_fqdn_data_create_destroy(D.get(), set_id, x);
    std::vector<void*> blocks;
    for (int round = 0; round < 2; ++round) { // what is given back is there again
        while (void* block = D->obj_alloc_fn(D->obj_store, set_id, (1u << 20) - 64)) blocks.push_back(block);
        EXPECT_EQ(blocks.size(), 64u);
        expect_refusal(D, "memory_limit of 67108864");
        for (; !blocks.empty(); blocks.pop_back()) D->obj_free_fn(D->obj_store, set_id, blocks.back());
    }
    platform_domain_options options{};
    options.memory_limit = 1u << 16;
    const Domain small = make_domain(&options);
    std::vector<zur_instance> places(10000);
    size_t placed = 0;
    for (; st == 0 && placed < places.size(); ++placed) {
        zurlib_update_sttr_offset(small.get(), set_id, &places[placed], 40);
        zur_domain_lookup_variant(small.get(), &small->variant_context, nullptr, &st);
    }
    EXPECT_EQ(st, 12u);
    EXPECT_EQ(places[placed - 2].flags, ZUR_MOVED_FLAGS);
    EXPECT_EQ(places[placed - 1].flags, 0u);
    expect_refusal(small, "memory_limit of 65536");
    options.memory_limit = 100; // of which one block takes a little more
    const Domain tiny = make_domain(&options);
    void* whole = tiny->obj_alloc_fn(tiny->obj_store, set_id, 100);
    EXPECT_EQ(tiny->obj_alloc_fn(tiny->obj_store, set_id, 1), nullptr);
    tiny->obj_free_fn(tiny->obj_store, set_id, whole);
    options.block_limit = 100;
    const Domain narrow = make_domain(&options);
    void* widest = narrow->obj_alloc_fn(narrow->obj_store, set_id, 100);
    EXPECT_NE(widest, nullptr);
    narrow->obj_free_fn(narrow->obj_store, set_id, widest);
    // Flags that nobody has moved are behind the record.
    auto* mark = orlan_ial_svm_preauthacl_data_create(D.get(), set_id);
    EXPECT_EQ(zurlib_get_sttr_offset(D.get(), set_id, mark), 24u);
    orlan_ial_svm_preauthacl_data_destroy(D.get(), set_id, mark);
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
