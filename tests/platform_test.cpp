// The stand-in runtime by itself, where the tests of the Bundle do not lean on it: texts of imported types, pinned
// hashes, agreement by name, counters of a copied type, XML paths and hostile documents, refused memory, and the limits
// of a Domain.
#include "support/images.hpp"

#include <orlan_epm.h>
#include <platform/domain.h>
#include <platform/store.h>
#include <platform/values.h>
#include <platform/xml.h>

#include <gmock/gmock.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <malloc.h>
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

TEST(Platform, TextsAreEscaped) {
    const Domain D = make_domain();
    char buffer[200];
    uint32_t st = 0;
    const std::string text =
        "a\x1F\x7F\\ \xC3\xA4 \xC3( \xC1\x81 \xED\xA0\x80 \xEF\xBF\xBE \xF0\x9F\x98\x80 \xF4\x90\x80\x80 <&>";
    const uint32_t length = var_string_to_xml(D.get(), set_id, "n", buffer, text.data(), sizeof buffer,
                                              static_cast<uint32_t>(text.size()), 0, &st);
    EXPECT_EQ(std::string(buffer, length),
              "<n>a\\1f\\7f\\5c \xC3\xA4 \\c3( \\c1\\81 \\ed\\a0\\80 \\ef\\bf\\be \xF0\x9F\x98\x80 "
              "\\f4\\90\\80\\80 &lt;&amp;&gt;</n>");
}

TEST(Platform, BadTextsLeaveNoValue) {
    const Domain D = make_domain();
    std::istringstream table(
        "u_int8 256 u_int16 65536 u_int32 -1 u_int64 0x10 char 128 zur_boolean two sm_auth_domain two zur_mac_addr "
        "00:1b:44:11:3a:g7 zur_mac_addr 00:1b:44-11:3a:b7 zur_vstring \\0g kesh_bytestr 0a0 ip_address 192.0.2 aaa_tlv "
        "26 "
        "sess_mgr_conn_hdl -1 sess_mgr_client_hdl +9 sess_mgr_session_label 1_0 sess_mgr_authorize_result 4294967296");
    for (std::string type, bad; table >> type >> bad;) {
        const auto from_xml =
            reinterpret_cast<decltype(&zur_mac_addr_from_xml)>(dlsym(RTLD_DEFAULT, (type + "_from_xml").c_str()));
        char message[100] = "";
        alignas(8) zur_mac_addr object[11] = {}, nothing[11] = {};
        uint32_t st = 0;
        from_xml(D.get(), set_id, "r", parse("<r>" + bad + "</r>").get(), object, &st, message, sizeof message);
        EXPECT_EQ(st, 22u);
        EXPECT_EQ(D->last_error, 22u);
        EXPECT_EQ(message, "r: not a value of type " + type);
        EXPECT_EQ(std::memcmp(object, nothing, sizeof object), 0) << type;
    }
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

TEST(Platform, RunsAreAnnounced) {
    static uint32_t announced = 0;
    const Domain D = make_domain();
    D->write_range_fn = [](zur_domain*, void*, uint32_t length, uint32_t, void*) { announced += length; };
    uint32_t st = 0, numbers[2] = {};
    EXPECT_EQ(u_int32_unmarshal_run(D.get(), set_id, "\0\0\0\1\0\0\0\2", numbers, 2, 8, &st), 8u);
    EXPECT_EQ(announced, 8u);
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

// A store's copy of a type may come from a build that knows fewer variants; its counters go on.
TEST(Platform, CountersOfACopyGoOn) {
    const Domain D = make_domain();
    zur_type_info copy = _orlan_ial_svm_acl_data_type_info_internal;
    zur_variant_record record = copy.variant_table->records[0];
    record.created = 5;
    const zur_variant_table shorter = {1, &record};
    copy.variant_table = &shorter;
    zur_update_variant_info(D.get(), set_id, &copy, &_orlan_ial_svm_acl_data_type_info_internal, 0);
    EXPECT_EQ(copy.variant_table->count, 3);
    EXPECT_EQ(copy.variant_table->records[0].created, 5u);
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
    for (const Path& before : paths)
        for (const Path& wanted : paths) {
            const Document document = parse(text);
            for (const Path* path : {&before, &wanted, &before}) {
                SCOPED_TRACE(path->path + " after " + before.path);
                char buffer[8] = "";
                uint32_t number = 99;
                EXPECT_EQ(xml_get_element_value(document.get(), path->path.c_str(), buffer, sizeof buffer, nullptr),
                          path->count == 0 ? 2u : 0u);
                EXPECT_EQ(buffer, path->value);
                EXPECT_EQ(xml_get_element_nodecount(document.get(), path->path.c_str(), &number), 0u);
                EXPECT_EQ(number, path->count);
            }
        }
    char two[2];
    EXPECT_EQ(xml_get_element_value(parse("<r>10</r>").get(), "r", two, sizeof two, nullptr), 28u);
}

std::string repeated(const char* text, int times) {
    std::string all;
    for (; times != 0; --times) all += text;
    return all;
}

TEST(Platform, HostileDocumentsAreRefused) {
    const platform_xml_limits many = {0, 0, 1000000}, small = {100, 2, 3};
    const std::tuple<std::string, platform_xml_limits, const char*> cases[] = {
        {repeated("<a>", 100000) + repeated("</a>", 100000), many, "line 1, column 194: elements nested too deeply"},
        {"<!DOCTYPE r [<!ENTITY a \"aaaa\"><!ENTITY b \"&a;&a;&a;\">]>\n<r>&b;</r>", many,
         "line 1, column 11: document type declarations are not accepted"},
        {"<a>" + repeated("<b/>", 8191) + "</a>", {}, ""},
        {"<a>" + repeated("<b/>", 8192) + "</a>", {}, "too many elements"},
        {std::string("<r>\0</r>", 8), many, "line 1, column 4: NUL byte"},
        {"<a><b/><c/></a>", small, ""},
        {"<a><b/><c/><d/></a>", small, "too many elements"},
        {"<a><b><c/></b></a>", small, "elements nested too deeply"},
        {"<a>" + std::string(94, ' ') + "</a>", small, "line 1, column 101: document too large"},
    };
    for (const auto& [text, limits, wanted] : cases) {
        std::string message;
        EXPECT_EQ(parse(text, &message, &limits) != nullptr, *wanted == 0);
        EXPECT_THAT(message, HasSubstr(wanted));
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

const std::vector<uint8_t> message =
    epm::test::images_of("rcl_client_intf_templ_list").back().bytes; // with three elements

// What may ask for memory in a tracking Domain, and how it ends.
const std::pair<const char*, uint32_t (*)(zur_domain* D, List* x)> refusable[] = {
    {"agree", [](auto* D, auto*) { return platform_domain_agree(D, "longer than what fits into a string", 1); }},
    {"oid_assign", [](auto* D, auto* x) { return platform_oid_assign(D, set_id, x, 5, nullptr); }},
    {"create in a store",
     [](auto* D, auto*) {
         D->store_mode = 1;
         auto* y = orlan_ial_vlan_group_info_create(D, set_id);
         const uint32_t code = D->last_error;
         orlan_ial_vlan_group_info_destroy(D, set_id, y);
         D->store_mode = 0;
         return code;
     }},
    {"unmarshal",
     [](auto* D, auto* x) {
         uint32_t st = 0;
         rcl_client_intf_templ_list_unmarshal(D, set_id, message.data(), x, static_cast<int32_t>(message.size()), 1,
                                              &st);
         return st;
     }},
};

TEST(Platform, RefusedMemoryEndsAsTwelve) {
    const char* preloaded = std::getenv("LD_PRELOAD");
    if (preloaded != nullptr && std::strstr(preloaded, "vgpreload")) GTEST_SKIP() << "valgrind brings its own new";
    platform_domain_options options{};
    options.tracking = ZUR_TRACKED_MODE;
    for (const auto& [name, run] : refusable)
        for (size_t n = 1, left = 0; left == 0; ++n) {
            SCOPED_TRACE(name + (" " + std::to_string(n)));
            const Domain D = make_domain(&options);
            List* x = rcl_client_intf_templ_list_create(D.get(), set_id);
            nth_refused = n;
            const uint32_t code = run(D.get(), x);
            left = std::exchange(nth_refused, 0);
            EXPECT_EQ(code, left != 0 ? 0u : 12u);
            EXPECT_FALSE(n == 1 && left != 0) << "asks for no memory";
            EXPECT_EQ(code != 0 ? run(D.get(), x) : 0u, 0u) << "again, with enough memory";
            std::string wire(rcl_client_intf_templ_list_len(D.get(), set_id, x) + 1, 0); // and still it is sound
            uint32_t st = 0;
            rcl_client_intf_templ_list_marshal(D.get(), set_id, wire.data(), x, static_cast<int32_t>(wire.size()), &st);
            EXPECT_EQ(st, 0u);
            rcl_client_intf_templ_list_destroy(D.get(), set_id, x);
        }
}

TEST(Platform, DomainsAreLimited) {
    const auto limited = [](size_t block_limit, size_t memory_limit) {
        platform_domain_options options{};
        options.block_limit = block_limit;
        options.memory_limit = memory_limit;
        return make_domain(&options);
    };
    const auto allocate = [](const Domain& D, size_t size) { return D->obj_alloc_fn(D->obj_store, set_id, size); };
    const auto release = [](const Domain& D, void* block) { D->obj_free_fn(D->obj_store, set_id, block); };
    const auto expect_refusal = [](const Domain& D, const char* words) {
        ASSERT_NE(platform_domain_refusal(D.get()), nullptr);
        EXPECT_THAT(platform_domain_refusal(D.get()), HasSubstr(words));
    };
    const Domain D = make_domain(), tiny = limited(100, 100), small = limited(0, 1u << 16);
    EXPECT_EQ(allocate(D, 1073741825), nullptr);
    expect_refusal(D, "1073741825 bytes is refused: the block_limit is 1048576");
    std::vector<void*> blocks;
    const auto fill = [&](const Domain& from, size_t size) {
        while (void* block = allocate(from, size)) blocks.push_back(block);
        return blocks.size();
    };
    const auto release_all = [&](const Domain& to) {
        for (; !blocks.empty(); blocks.pop_back()) release(to, blocks.back());
    };
    for (int round = 0; round < 2; ++round) { // what is given back is there again
        EXPECT_EQ(fill(D, (1u << 20) - 64), 64u);
        expect_refusal(D, "memory_limit of 67108864");
        release_all(D);
    }
    void* whole = allocate(tiny, 100); // which takes a little more
    EXPECT_NE(whole, nullptr);
    EXPECT_EQ(allocate(tiny, 1), nullptr);
    release(tiny, whole);
    EXPECT_EQ(allocate(tiny, 101), nullptr) << "the block that is kept may have room for it";
    // Blocks that are kept are bounded, are not in use, end with their Domain, and may be another's.
    Domain other = limited(0, 1u << 22);
    blocks.reserve(1u << 17);
    const size_t allocated = mallinfo2().uordblks;
    fill(other, 1000);
    release_all(other);
    EXPECT_LT(mallinfo2().uordblks, allocated + (5u << 18));
    for (const size_t size : {40u, 1000u, 40u}) {
        EXPECT_LE((1u << 22) / size - fill(other, size), 8u); // malloc may give a little more than asked for
        release_all(size == 40 ? other : small);              // which has not made them
        if (size == 1000) other = limited(0, 1u << 22);
        EXPECT_LE((1u << 16) / size - fill(small, size), 8u);
        release_all(small);
    }
    other.reset();
    EXPECT_LT(mallinfo2().uordblks, allocated + (1u << 17));
    std::vector<zur_instance> places(10000);
    size_t placed = 0;
    uint32_t st = 0;
    for (; st == 0 && placed < places.size(); ++placed) {
        zurlib_update_sttr_offset(small.get(), set_id, &places[placed], 40);
        zur_domain_lookup_variant(small.get(), &small->variant_context, nullptr, &st);
    }
    EXPECT_EQ(st, 12u);
    EXPECT_EQ(places[placed - 2].flags, ZUR_MOVED_FLAGS);
    EXPECT_EQ(places[placed - 1].flags, 0u);
    expect_refusal(small, "memory_limit of 65536");
    for (zur_instance& place : places) zur_hd_mapping_destroy(small.get(), set_id, &place, &(st = 0));
    EXPECT_EQ(small->hd_mapping_root, 0u);
    // Flags that nobody has moved are behind the record.
    platform_domain_agree_all(D.get(), -1); // for a negative variant nothing is counted
    auto* mark = orlan_ial_svm_preauthacl_data_create(D.get(), set_id);
    EXPECT_EQ(zurlib_get_sttr_offset(D.get(), set_id, mark), 24u);
    EXPECT_EQ((_orlan_ial_svm_preauthacl_data_type_info_internal.variant_table->records - 1)->created, 0u);
    orlan_ial_svm_preauthacl_data_destroy(D.get(), set_id, mark);
    platform_domain_set_workspace(D.get(), 64);
    void* workspace = nullptr;
    zurlib_get_handle_ws(D.get(), &workspace, &st, nullptr);
    EXPECT_EQ(st, 64u);
}

} // namespace
