// Domains for tests, in all modes:
//     TestDomain D({.tracking = ZUR_TRACKED_MODE, .store_mode = 1, .containment = true});
//     create(D, D.set_id()); ... ; EXPECT_EQ(D.st, 0u);
// Memory comes from heap(), and all hooks can be watched.
#pragma once

#include <platform/domain.h>

#include <string>
#include <vector>

namespace epm::test {

/// The set_id of the tests: a number that is nothing else.
inline constexpr std::uint32_t some_set = 0x5E700;

struct Mode {
    std::uint32_t tracking = PLATFORM_NO_HANDLE; ///< or ZUR_UNTRACKED_MODE, ZUR_TRACKED_MODE
    std::uint32_t store_mode = 0;
    bool containment = false;
    bool has_store = false; ///< obj_store is not null
    std::uint32_t set_id = some_set;

    bool is_tracking() const { return tracking == ZUR_TRACKED_MODE; }
    /// Whether the store is to hear of marks.
    bool marks() const { return containment && store_mode == 1 && set_id != ZUR_NO_SET; }
    std::string text() const;
};

/// Without a handle, untracked and tracked.
const std::vector<Mode>& tracking_modes();
/// Every combination of tracking, store_mode 0 and 1, containment, with and without a store; with all of them, but in
/// no set; and with all of them in a store that only copies types.
const std::vector<Mode>& all_modes();

/// The hook that does nothing, where the test program declares plain operations (plain.cpp).
[[gnu::weak]] void idle_write_range(zur_domain*, void*, std::uint32_t, std::uint32_t, void*);
inline const bool declares_plain = idle_write_range != nullptr;

class TestDomain {
public:
    explicit TestDomain(const Mode& mode = {});
    /// A Domain of somebody else's, who destroys it; nobody watches its hooks.
    TestDomain(zur_domain* D, const Mode& mode) : mode_(mode), domain_(D), is_own_(false) { current = this; }
    ~TestDomain();
    TestDomain& operator=(TestDomain&&) = delete; // nor is it copied

    operator zur_domain*() const { return domain_; } // NOLINT: it is passed where a Domain is
    zur_domain* operator->() const { return domain_; }
    const Mode& mode() const { return mode_; }
    std::uint32_t set_id() const { return mode_.set_id; }
    /// Agrees on the variant of one type, or of all.
    void agree(const char* type, int variant) {
        platform_domain_agree(domain_, type, static_cast<std::int8_t>(variant));
    }
    void agree_all(int variant) { platform_domain_agree_all(domain_, static_cast<std::int8_t>(variant)); }
    /// The one that is alive; there is no other beside it.
    static inline TestDomain* current = nullptr;
    /// TypeInfos that the Bundle has copied into this Domain's store.
    const std::vector<const zur_type_info*>& copies() const { return copies_; }
    std::uint32_t st = 0; ///< a status word

private:
    static int insert_type(void* type_table, std::uint32_t S, const char* hex_digest, zur_type_info* copy);

    Mode mode_;
    zur_domain* domain_;
    bool is_own_ = true;
    std::vector<const zur_type_info*> copies_;
};

} // namespace epm::test
