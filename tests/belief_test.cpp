// When the library believes what a runtime declares plain. The test program watches all that it imports, loads it anew
// under each declaration, and hears what it calls for one message.
#include "support/domains.hpp"
#include "support/images.hpp"
#include "support/observation.hpp"
#include "tool/operations.hpp"

#include <zur/plain.h>

#include <gtest/gtest.h>

#include <set>

#define EPM_NAME(name) #name,

/// The program's declaration, which each load finds as it is then.
extern zur_plain_operations declared asm("zur_plain_declaration");

namespace epm::test {
namespace {

/// What a newly loaded library calls to create, read and write a message of many numbers. In an Instance that was
/// made for an older peer the first setter raises the variant.
std::multiset<std::string> calls_of_a_message(std::uint32_t containment = 0) {
    struct : Observer {
        std::multiset<std::string> calls;
        void before_call(const char* function, const Arguments&) override { calls.insert(function); }
    } ear;
    const std::string type = "orlan_ial_svm_acl_data";
    const auto sent = images_of(type).back().bytes;
    auto buffer = std::vector<std::uint8_t>(sent.size());
    const auto room = static_cast<std::int32_t>(sent.size());
    void* library = dlopen(EPM_LIBRARY_FILE, RTLD_NOW);
    const tool::OperationTable<tool::Pointer> call([&]<class F>(F& function, const char* what) {
        function = reinterpret_cast<F>(dlsym(library, stamp::operation_name(type, what).c_str()));
    });
    const auto set =
        reinterpret_cast<void (*)(zur_domain*, std::uint32_t, zur_instance*, std::uint32_t, std::uint32_t*)>(
            dlsym(library, (type + "_sequence_set_value").c_str()));
    TestDomain D({.tracking = ZUR_TRACKED_MODE});
    D->containment_on = containment;
    platform_domain_agree_all(D, 0);
    zur_instance* older = call.create(D, some_set);
    platform_domain_clear_agreement(D);
    set(D, some_set, older, 7, &D.st);
    EXPECT_EQ(older->variant, older->layout_variant);
    ear.calls.clear();
    zur_instance* x = call.create(D, some_set);
    call.unmarshal(D, some_set, sent.data(), x, room, 0, &D.st);
    call.marshal(D, some_set, buffer.data(), x, room, &D.st);
    const auto heard = ear.calls;
    EXPECT_EQ(D.st, 0u);
    EXPECT_EQ(buffer, sent);
    for (zur_instance* each : {x, older}) call.destroy(D, some_set, each);
    dlclose(library);
    EXPECT_EQ(dlopen(EPM_LIBRARY_FILE, RTLD_NOW | RTLD_NOLOAD), nullptr) << "is not loaded anew";
    return heard;
}

// Of a declaration that is not wholly right no part counts. The first wrong one is of version 0.
TEST(Belief, IsInADeclarationOfTheVeryFunctions) {
    const auto few = calls_of_a_message(), kept = calls_of_a_message(1);
    for (const char* plain : {ZUR_PLAIN_FUNCTIONS(EPM_NAME)}) EXPECT_FALSE(few.contains(plain)) << plain;
    const zur_plain_operations right = declared;
    declared.version = 0;
    const auto all = calls_of_a_message();
    EXPECT_EQ(all.count("u_int32_marshal"), 8u);
    const auto marks = [](const auto& calls) { return calls.count("zurdb_record_containment2"); };
    EXPECT_EQ(marks(kept), marks(calls_of_a_message(1)));
    for (std::size_t n = 0; n < ZUR_PLAIN_COUNT + 2; ++n) {
        declared = right;
        if (n < ZUR_PLAIN_COUNT)
            declared.functions[n] = right.functions[(n + 1) % ZUR_PLAIN_COUNT];
        else
            ++(n == ZUR_PLAIN_COUNT ? declared.version : declared.count);
        EXPECT_EQ(calls_of_a_message(), all) << n;
    }
}

} // namespace
} // namespace epm::test
