// The ends of the process, each with its trace from an entry of the type that it belongs to, and the traces that no
// test of an operation meets on its way.
#include "support/bundle_test.hpp"
#include "support/calls.hpp"
#include "support/imports.hpp"
#include "support/types.hpp"

#include <sys/wait.h>
#include <unistd.h>

#include <cstring>

namespace epm::test {
namespace {

/// The last trace of a process that ended in abort().
struct Death {
    bool is_abort = false;
    platform_trace_record trace{};
};

template <class Body>
Death death_of(Body body) {
    int ends[2];
    Death death;
    if (pipe(ends) != 0) return death;
    const pid_t child = fork();
    if (child == 0) {
        static int to_parent;
        to_parent = ends[1];
        platform_trace_set_sink([](void*, const platform_trace_record* r) { (void)!write(to_parent, r, sizeof *r); },
                                nullptr);
        body();
        _exit(0);
    }
    close(ends[1]);
    while (read(ends[0], &death.trace, sizeof death.trace) > 0) {
    }
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    death.is_abort = WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT;
    return death;
}

class Deaths : public BundleTest {
protected:
    void SetUp() override {
        BundleTest::SetUp();
        checker.reset(); // nothing is left to check behind a death
    }

    /// The first entry of each type and of the type after it, found by the texts of creation.
    static std::pair<std::uint32_t, std::uint32_t> entries_of(const std::string& type) {
        static const std::vector<std::pair<std::string, std::uint32_t>> starts = [] {
            std::vector<std::pair<std::string, std::uint32_t>> list;
            platform_trace_reader* reader = platform_trace_open(EPM_LIBRARY_FILE, nullptr, 0);
            for (std::uint32_t i = 0; i < platform_trace_count(reader); ++i) {
                std::uint32_t length = 0;
                std::uint32_t luid = 0;
                const std::string text(platform_trace_text(reader, i, &length, &luid), 0, std::string::npos);
                const std::string whole = text.substr(0, length);
                if (const std::size_t end = whole.find(" create"); whole.starts_with(" error in ") && end != whole.npos)
                    list.emplace_back(whole.substr(10, end - 10), i);
            }
            list.emplace_back("", platform_trace_count(reader) - 1);
            platform_trace_close(reader);
            return list;
        }();
        const auto found = std::ranges::find(starts, type, &std::pair<std::string, std::uint32_t>::first);
        EXPECT_NE(found, starts.end());
        return {found->second, std::next(found)->second};
    }

    template <class Body>
    static void expect_death(const std::string& type, const std::string& text, Body body) {
        const Death death = death_of(body);
        EXPECT_TRUE(death.is_abort);
        EXPECT_EQ(Traces::text_of(death.trace), "0 \"" + text + "\"");
        const auto [first, end] = entries_of(type);
        EXPECT_TRUE(death.trace.index >= first && death.trace.index < end)
            << "entry " << death.trace.index << " is not one of " << type;
    }

    /// The record that traces a mismatch: an array's owner does for its elements.
    static std::string teller_of_mismatch(const std::string& type) {
        if (type == "rcl_client_intf_templ") return "rcl_client_intf_templ_list";
        return type == "fqdn_domain_name" ? "orlan_svm_epm_notify_domain_name" : type;
    }
};

// Wherever the mode is looked at. The operations' names identify the places; the damage comes first.
TEST_F(Deaths, DamagedHandle) {
    std::size_t places = 0;
    for (const Record* r : catalogue::all_records) {
        const std::string type = r->name;
        TestDomain D({.tracking = ZUR_TRACKED_MODE});
        Instance* x = create(type, D);
        Instance* y = create(type, D);
        std::vector<std::uint64_t> memory(200);
        auto* const buffer = reinterpret_cast<unsigned char*>(memory.data());
        const auto written = whole<std::uint32_t>(D, type, "marshal", buffer, x, 1600);
        D.st = D->last_error = 0; // a message without an arm is told of
        const auto dies = [&](const std::string& what, auto body) {
            SCOPED_TRACE(type + "_" + what);
            ++places;
            expect_death(type, " Corrupted ZUR Handle", [&] {
                D->tracking_handle->handle_kind = 0xDDDE;
                body();
            });
        };
        for (const char* name : {"create", "create_internal"}) dies(name, [&] { bare<Instance*>(D, type, name); });
        dies("create_cr", [&] { operation<Instance*(zur_domain*)>(type, "create_cr")(D); });
        dies("sizeof", [&] { operation<std::uint32_t(zur_domain*)>(type, "sizeof")(D); });
        dies("sizeof_internal", [&] {
            operation<std::uint32_t(zur_domain*, const Instance*, std::uint32_t, std::uint32_t)>(
                type, "sizeof_internal")(D, x, 0, 0);
        });
        dies("initialize", [&] {
            whole<void*>(D, type, "initialize", buffer, type_info_of(type), 0u, 1u, 0u, static_cast<void*>(nullptr));
        });
        dies("destroy", [&] { destroy(type, D, x); });
        dies("set", [&] { whole(D, type, "set", x, y); });
        for (const char* name : {"marshal", "marshal_for_clone"})
            dies(name, [&] { whole<std::uint32_t>(D, type, name, buffer, x, 1600); });
        dies("to_xml",
             [&] { whole<std::uint32_t>(D, type, "to_xml", "x", reinterpret_cast<char*>(buffer), x, 1600u, 0u); });
        dies("unmarshal",
             [&] { whole<std::uint32_t>(D, type, "unmarshal", buffer, x, static_cast<std::int32_t>(written), 0u); });
        // The length of a record with a nested one is stopped there.
        if (!r->any([](const Field& f) { return f.kind == Kind::embedded; }))
            dies("len", [&] { bare<std::uint32_t>(D, type, "len", x); });
        for (std::size_t i = 0; i < r->count; ++i) {
            const Field& f = r->fields[i];
            if (!f.is_tracked()) continue;
            const std::string kind = f.has_element_flags() ? "state_flag_whole_" : "state_flag_";
            dies(f.name + ("_" + kind) + "get", [&] { call<std::uint8_t>(D, *r, f, kind + "get", x); });
            dies(f.name + ("_" + kind) + "set", [&] { call(D, *r, f, kind + "set", x, 1u); });
            if (f.kind != Kind::value || (f.foreign != nullptr && f.foreign->length != 4)) continue;
            dies(f.name + std::string("_set_value"), [&] { call(D, *r, f, "set_value", x, 1u); });
        }
        for (Instance* instance : {x, y}) destroy(type, D, instance);
    }
    EXPECT_EQ(places, 49u * 13 - 5 + 2 * 181 + 81);
}

TEST_F(Deaths, DamagedTypeInfo) {
    for (const TypeNumbers& t : all_types()) {
        SCOPED_TRACE(t.name);
        TestDomain D;
        zur_type_info damaged = *type_info_of(t.name);
        damaged.magic = 0xBEEFF00C;
        zur_type_info empty = *type_info_of(t.name);
        empty.variant_table = nullptr;
        Instance* x = create(t.name, D);
        for (const zur_type_info* type : {static_cast<const zur_type_info*>(nullptr), &std::as_const(damaged)})
            expect_death(t.name, " tinfo is null or corrupted", [&] {
                x->type_info = type;
                destroy(t.name, D, x);
            });
        expect_death(t.name, " varinfo is NULL", [&] {
            x->type_info = &empty;
            destroy(t.name, D, x);
        });
        expect_death(t.name, " varinfo is NULL", [&] {
            D->store_mode = 2;
            const auto copy = REPLACE(zur_type_info_ptr_get, [&](auto...) { return &empty; });
            create(t.name, D);
        });
        destroy(t.name, D, x);
    }
}

// A peer's mark that its Instance is tracked meets one here that is not.
TEST_F(Deaths, TrackedStreamIntoAnUntrackedInstance) {
    TestDomain D({.tracking = ZUR_TRACKED_MODE});
    for (const TypeNumbers& t : all_types()) {
        if (t.is_enum) continue;
        SCOPED_TRACE(t.name);
        Instance* x = create(t.name, D);
        unsigned char buffer[1600];
        const std::uint32_t written =
            whole<std::uint32_t>(D, t.name, "marshal", buffer, x, std::int32_t{sizeof buffer});
        D.st = 0;
        expect_death(teller_of_mismatch(t.name), " ZUR handle and object state tracking mis-match", [&] {
            x->flags = 0;
            whole<std::uint32_t>(D, t.name, "unmarshal", buffer, x, static_cast<std::int32_t>(written), 0u);
        });
        destroy(t.name, D, x);
    }
}

// A store that refuses one of the ranges of a list's links, in each operation that writes them. The trace entry is that
// of the link, so no two refusals in one operation have the same trace.
TEST_F(Deaths, StoreThatRefusesALink) {
    const std::string owner = "epm_client_acl_feat_ctx";
    const std::string element = "epm_client_acl_feat_config";
    const std::string list = "bm_feat_conf_list";
    TestDomain D({.has_store = true});
    Instance* x = create(owner, D);
    Instance* other = create(owner, D);
    std::vector<Instance*> elements;
    for (int i = 0; i < 3; ++i) {
        elements.push_back(create(element, D));
        call(D, owner, list, "set_last", x, elements.back());
    }
    Instance* fresh = create(element, D);
    unsigned char buffer[4000];
    const auto written = whole<std::uint32_t>(D, owner, "marshal", buffer, other, std::int32_t{sizeof buffer});
    const struct {
        const char* name;
        const std::string& type;
        std::size_t ranges;
        std::function<void()> run;
    } cases[] = {
        {"set_first", owner, 4, [&] { call(D, owner, list, "set_first", x, fresh); }},
        {"set_last", owner, 4, [&] { call(D, owner, list, "set_last", x, fresh); }},
        {"set_before", owner, 4, [&] { call(D, owner, list, "set_before", x, elements[1], fresh); }},
        {"set_after", owner, 4, [&] { call(D, owner, list, "set_after", x, elements[1], fresh); }},
        {"remove", owner, 3, [&] { call(D, owner, list, "remove", x, elements[1]); }},
        {"destroy of an element", element, 3, [&] { destroy(element, D, elements[1]); }},
        {"destroy of the owner", owner, 3, [&] { destroy(owner, D, x); }},
        {"set", owner, 9, [&] { whole(D, owner, "set", other, x); }},
        {"unmarshal", owner, 3,
         [&] { whole<std::uint32_t>(D, owner, "unmarshal", buffer, x, static_cast<std::int32_t>(written), 1u); }},
    };
    for (const auto& c : cases) {
        std::set<std::uint32_t> entries;
        for (std::size_t n = 0; n < c.ranges; ++n) {
            SCOPED_TRACE(std::string(c.name) + ", range " + std::to_string(n));
            const Death death = death_of([&] {
                std::size_t left = n;
                const auto judge = REPLACE(lumeo_set_range, [&](auto...) { return left-- == 0 ? 0 : 1; });
                const auto print = REPLACE(lumeo_perror, [] {});
                c.run();
            });
            EXPECT_TRUE(death.is_abort);
            EXPECT_EQ(Traces::text_of(death.trace), "0 \" lumeo internal error\"");
            const auto [first, end] = entries_of(c.type);
            EXPECT_TRUE(death.trace.index >= first && death.trace.index < end);
            entries.insert(death.trace.index);
        }
        EXPECT_EQ(entries.size(), c.ranges) << c.name;
    }
    for (Instance* instance : {x, other}) destroy(owner, D, instance);
    destroy(element, D, fresh);
}

TEST_F(Deaths, ElementThatCannotBeRead) {
    TestDomain D;
    Traces traces;
    Instance* x = create("rcl_client_acl_t", D);
    Instance* element = create("epm_client_acl_feat_ctx", D);
    call(D, "rcl_client_acl_t", "bm_feat_ctx_list", "set_last", x, element);
    unsigned char buffer[400];
    const std::uint32_t written =
        whole<std::uint32_t>(D, "rcl_client_acl_t", "marshal", buffer, x, std::int32_t{sizeof buffer});
    const auto failure = REPLACE(u_int16_unmarshal, [](auto*, auto, auto*, auto*, auto, auto, std::uint32_t* st) {
        *st = 5;
        return 0u;
    });
    whole<std::uint32_t>(D, "rcl_client_acl_t", "unmarshal", buffer, x, static_cast<std::int32_t>(written), 1u);
    const std::string all = traces.take();
    const std::string told = std::string("3 \" Error ") + std::strerror(5) + " while unmarshalling list element\"\n";
    EXPECT_NE(all.find(told), std::string::npos) << all;
    EXPECT_EQ(std::exchange(D.st, 0), 5u);
    destroy("rcl_client_acl_t", D, x);
}

} // namespace
} // namespace epm::test
