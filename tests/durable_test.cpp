// Pools: what survives a kill at any point, an abort and a refusal; who may open what; and that nothing is lost.
#include "support/durable_mix.hpp"

#include <gmock/gmock.h>

#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <random>
#include <set>

namespace epm::test {
namespace {

constexpr std::size_t pool_size = std::size_t{16} << 20;

/// libpmemobj's own tool; where it is missing its judgement is too.
constexpr char pmempool[] = "/usr/bin/pmempool";

/// A pool of a test's own, in memory where there is such a file system.
class Durable : public testing::Test {
protected:
    Durable() {
        std::string folder = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : testing::TempDir();
        folder += "/durable_test.XXXXXX";
        if (mkdtemp(folder.data()) != nullptr) folder_ = folder;
        path = folder_ + "/pool";
    }
    ~Durable() override { std::filesystem::remove_all(folder_); }

    std::string path;

private:
    std::string folder_;
};

class Pool {
public:
    explicit Pool(const std::string& path, std::size_t size = 0) {
        const durable_status status =
            size != 0 ? durable_create(path.c_str(), size, &pool_) : durable_open(path.c_str(), &pool_);
        EXPECT_EQ(status, DURABLE_GOOD) << durable_status_text(status) << ": " << durable_reason();
    }
    ~Pool() { durable_close(pool_); }
    Pool& operator=(Pool&&) = delete;                // nor is it copied
    operator durable_pool*() const { return pool_; } // NOLINT: it is passed where a pool is

    durable_report look() const {
        durable_report report{};
        EXPECT_EQ(durable_look(pool_, &report), DURABLE_GOOD) << durable_reason();
        EXPECT_EQ(report.lost, 0u);
        return report;
    }

private:
    durable_pool* pool_ = nullptr;
};

Mode mode_of(bool is_tracked) {
    return {.tracking = is_tracked ? ZUR_TRACKED_MODE : PLATFORM_NO_HANDLE, .store_mode = 1, .has_store = true};
}

/// A Domain of a pool, and the mix on it.
struct Session {
    Session(durable_pool* pool, bool is_tracked, unsigned seed)
        : D(durable_domain_create(pool, is_tracked ? ZUR_TRACKED_MODE : PLATFORM_NO_HANDLE), mode_of(is_tracked)),
          mix(D, seed, pool) {}

    void run(unsigned n) {
        ASSERT_EQ(durable_begin(D), DURABLE_GOOD) << durable_reason();
        mix.run(n);
        ASSERT_EQ(D.st, 0u);
        ASSERT_EQ(mix.is_aborted(n) ? durable_abort(D) : durable_commit(D), DURABLE_GOOD) << durable_reason();
        mix.load();
    }
    void destroy_all() {
        ASSERT_EQ(durable_begin(D), DURABLE_GOOD) << durable_reason();
        mix.destroy_all();
        ASSERT_EQ(durable_commit(D), DURABLE_GOOD) << durable_reason();
    }

    TestDomain D;
    Mix mix;
};

// ---- kills ----

/// Kills this process in front of or behind some call of a hook or flush of the file.
std::uint64_t calls_left;
bool is_killed_behind;
zur_domain hooks;

template <class Call>
auto count_call(const Call& call) {
    const bool is_last = calls_left != 0 && --calls_left == 0;
    if (is_last && !is_killed_behind) raise(SIGKILL);
    struct Behind {
        bool is_last;
        ~Behind() {
            if (is_last) raise(SIGKILL);
        }
    } const behind{is_last};
    return call();
}

void kill_at_call(zur_domain* D, std::uint64_t n, bool is_behind) {
    calls_left = n;
    is_killed_behind = is_behind;
    hooks = *D;
    D->write_range_fn = [](zur_domain* d, void* address, std::uint32_t length, std::uint32_t S, void* owner) {
        count_call([&] { hooks.write_range_fn(d, address, length, S, owner); });
    };
    D->obj_alloc_fn = [](void* store, std::uint32_t S, std::size_t size) {
        return count_call([&] { return hooks.obj_alloc_fn(store, S, size); });
    };
    D->obj_free_fn = [](void* store, std::uint32_t S, void* block) {
        count_call([&] { hooks.obj_free_fn(store, S, block); });
    };
}

} // namespace
} // namespace epm::test

/// libpmemobj's flushes, many of them within a commit. They are counted while calls of hooks are.
extern "C" [[gnu::visibility("default")]] int msync(void* address, std::size_t length, int flags) {
    return epm::test::count_call([&] { return static_cast<int>(syscall(SYS_msync, address, length, flags)); });
}

namespace epm::test {
namespace {

/// What the child has done; it survives the child.
struct Journal {
    volatile unsigned done;       ///< transactions that have ended
    volatile unsigned committing; ///< the number behind the one whose commit has begun
};

[[noreturn]] void work_until_killed(const std::string& path, Journal& journal, bool is_tracked, unsigned seed,
                                    std::uint64_t calls) {
    const Pool pool(path);
    Session session(pool, is_tracked, seed);
    if (calls != 0) kill_at_call(session.D, calls, calls % 2 != 0);
    for (unsigned n = journal.done; !testing::Test::HasFailure(); ++n) {
        EXPECT_EQ(durable_begin(session.D), DURABLE_GOOD);
        session.mix.run(n);
        EXPECT_EQ(session.D.st, 0u);
        const bool is_aborted = session.mix.is_aborted(n);
        if (!is_aborted) journal.committing = n + 1;
        EXPECT_EQ(is_aborted ? durable_abort(session.D) : durable_commit(session.D), DURABLE_GOOD);
        journal.done = n + 1;
        session.mix.load();
    }
    _exit(1);
}

unsigned kill_points() {
    const char* wanted = std::getenv("EPM_KILLS");
    return wanted != nullptr ? static_cast<unsigned>(std::stoul(wanted)) : 200;
}

TEST_F(Durable, SurvivesKills) {
    auto* journal = static_cast<Journal*>(
        mmap(nullptr, sizeof(Journal), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(journal, MAP_FAILED);
    const unsigned points = kill_points();
    constexpr unsigned points_of_pool = 40;
    unsigned transactions = 0, in_commit = 0, of_these_after = 0;
    for (unsigned first = 0; first < points; first += points_of_pool) {
        const unsigned seed = first / points_of_pool;
        const bool is_tracked = seed % 2 != 0;
        std::filesystem::remove(path);
        const std::size_t own_blocks = Pool(path, pool_size).look().blocks;
        *journal = {};
        TestDomain model_domain(mode_of(is_tracked));
        Mix model(model_domain, seed);
        unsigned modelled = 0;
        const auto catch_up = [&](unsigned end) {
            for (; modelled < end; ++modelled)
                if (!model.is_aborted(modelled)) model.run(modelled);
        };
        Random random{std::mt19937(seed)};
        for (unsigned point = first; point < std::min(first + points_of_pool, points); ++point) {
            const bool is_by_time = random.once_in(3);
            const std::uint64_t calls = is_by_time ? 0 : 1 + random.below(random.once_in(2) ? 100 : 4000);
            const auto wait = static_cast<useconds_t>(random.below(8000));
            const pid_t child = fork();
            if (child == 0) work_until_killed(path, *journal, is_tracked, seed, calls);
            if (is_by_time) {
                usleep(wait);
                kill(child, SIGKILL);
            }
            int status = 0;
            ASSERT_EQ(waitpid(child, &status, 0), child);
            ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "the child has failed";

            const Pool pool(path);
            pool.look();
            Session session(pool, is_tracked, seed);
            const std::string found = session.mix.shown();
            catch_up(journal->done);
            if (journal->committing > journal->done) {
                ++in_commit;
                if (found != model.shown()) {
                    ++of_these_after;
                    journal->done = journal->committing;
                    catch_up(journal->done);
                }
            }
            ASSERT_EQ(found, model.shown())
                << "pool " << seed << ", point " << point << ", transaction " << journal->done;
            for (const auto& [name, root] : session.mix.roots())
                EXPECT_EQ(Mix::operations(*root.r).compare(root.x, model.roots().at(name).x), 0) << root.r->name;
            if (point % 100 == 99 && isatty(STDERR_FILENO))
                fprintf(stderr, "\r%u of %u points%s", point + 1, points, point + 1 == points ? "\n" : "");
            if (point % points_of_pool == points_of_pool - 1) {
                std::set<const zur_type_info*> types; // the pool's copies, which count
                for (const auto& [name, root] : session.mix.roots()) types.insert(root.x->type_info);
                session.destroy_all();
                for (const zur_type_info* type : types) {
                    const zur_variant_record& counted = type->variant_table->records[type->variant_table->count - 1];
                    EXPECT_GT(counted.created, 0u) << type->name;
                    EXPECT_EQ(counted.created, counted.destroyed) << type->name;
                }
                EXPECT_LE(pool.look().blocks, own_blocks + 2 * 16) << "more is left than copies of imported types";
            }
        }
        transactions += modelled;
        model.destroy_all();
        if (std::filesystem::exists(pmempool)) {
            EXPECT_EQ(std::system((pmempool + (" check " + path)).c_str()), 0);
        }
    }
    RecordProperty("points", static_cast<int>(points));
    printf("%u points, %u transactions; %u kills fell into a commit, %u of them took effect\n", points, transactions,
           in_commit, of_these_after);
    munmap(journal, sizeof *journal);
}

// ---- aborts and refusals ----

/// Every block that Instances have in the pool, and its bytes when a transaction began.
class Bytes {
public:
    /// To be made before the first Instance is.
    explicit Bytes(zur_domain* D) {
        current = this;
        hooks = *D;
        D->obj_alloc_fn = [](void* store, std::uint32_t S, std::size_t size) {
            void* block = refuse_at != 0 && --refuse_at == 0 ? nullptr : hooks.obj_alloc_fn(store, S, size);
            if (block != nullptr) current->now_[static_cast<char*>(block)] = size;
            return block;
        };
        D->obj_free_fn = [](void* store, std::uint32_t S, void* block) {
            EXPECT_EQ(current->now_.erase(static_cast<char*>(block)), 1u);
            hooks.obj_free_fn(store, S, block);
        };
    }

    void keep() {
        kept_.clear();
        for (const auto& [block, size] : now_) kept_[block] = std::string(block, size);
    }
    void expect_kept() {
        now_.clear();
        for (const auto& [block, bytes] : kept_) {
            now_[block] = bytes.size();
            const auto [was, is] = std::ranges::mismatch(bytes, std::string_view(block, bytes.size()));
            EXPECT_EQ(was, bytes.end()) << "byte " << was - bytes.begin() << " of a block of " << bytes.size();
        }
    }

    static inline std::uint64_t refuse_at = 0; ///< the allocation to refuse, counted from now on

private:
    static inline Bytes* current = nullptr;
    std::map<char*, std::size_t> now_;
    std::map<char*, std::string> kept_;
};

TEST_F(Durable, AbortsLeaveNothing) {
    for (const bool is_tracked : {false, true}) {
        std::filesystem::remove(path);
        const Pool pool(path, pool_size);
        Session session(pool, is_tracked, 77 + is_tracked);
        Bytes bytes(session.D);
        for (unsigned n = 0; n < 300 && !HasFailure(); ++n) {
            SCOPED_TRACE("transaction " + std::to_string(n));
            const std::string before = session.mix.shown();
            const durable_report report = pool.look();
            bytes.keep();
            // After each operation of the transaction; and with each allocation refused in turn.
            const auto attempt = [&](unsigned most, std::uint64_t refuse_at) {
                ASSERT_EQ(durable_begin(session.D), DURABLE_GOOD);
                Bytes::refuse_at = refuse_at;
                session.mix.run(n, most);
                EXPECT_TRUE(session.D.st == 0 || refuse_at != 0) << session.D.st << ": " << durable_reason();
                session.D.st = 0;
                ASSERT_EQ(durable_abort(session.D), DURABLE_GOOD);
                bytes.expect_kept();
                session.mix.load();
                EXPECT_EQ(session.mix.shown(), before);
                EXPECT_EQ(pool.look().blocks, report.blocks);
            };
            for (unsigned most = 1; most <= 5; ++most) attempt(most, 0);
            for (std::uint64_t k = 1; k == 1 || (Bytes::refuse_at == 0 && k < 60); ++k) attempt(5, k);
            Bytes::refuse_at = 0;
            session.run(n);
            if (session.mix.is_aborted(n)) bytes.expect_kept();
        }
        session.destroy_all();
    }
}

TEST_F(Durable, FullPoolUndoesTheTransaction) {
    std::optional<Pool> opened(std::in_place, path, DURABLE_SMALLEST);
    Pool& pool = *opened;
    TestDomain D(durable_domain_create(pool, PLATFORM_NO_HANDLE), mode_of(false));
    const std::string type = "orlan_ial_vlan_group_info";
    const auto add = [&](std::uint32_t bytes) {
        Instance* x = create(type, D);
        const std::string text(bytes, 'x');
        if (x == nullptr) return false;
        call(D, type, "gp_name", "set", x, text.data(), bytes);
        static int n = 0;
        return D.st == 0 && durable_root_set(D, std::to_string(++n).c_str(), x) == DURABLE_GOOD;
    };
    // Blocks of all sizes, until the smallest is refused.
    for (const std::uint32_t bytes : {60000u, 4000u, 200u, 1u})
        for (bool has_room = true; has_room;) {
            ASSERT_EQ(durable_begin(D), DURABLE_GOOD);
            has_room = add(bytes);
            D.st = 0;
            has_room = (has_room ? durable_commit(D) : durable_abort(D)) == DURABLE_GOOD && has_room;
        }
    const auto report = pool.look();
    EXPECT_GT(report.roots, 100u);

    Mix mix(D, 0, pool);
    const std::string before = mix.shown();
    unsigned full = 0, done = 0;
    const auto set = [&](std::uint32_t value, std::size_t most) {
        for (const auto& [name, root] : mix.roots())
            if (most != 0 && most-- != 0) call(D, type, "is_added", "set_value", root.x, value);
        EXPECT_EQ(D.st, 0u);
    };
    for (std::size_t most = 1; most <= mix.roots().size(); most += 1 + most / 4) {
        ASSERT_EQ(durable_begin(D), DURABLE_GOOD);
        set(77, most);
        const durable_status status = durable_commit(D);
        EXPECT_TRUE(status == DURABLE_GOOD || status == DURABLE_FULL) << durable_reason();
        ++(status == DURABLE_GOOD ? done : full);
        if (status == DURABLE_GOOD) {
            ASSERT_EQ(durable_begin(D), DURABLE_GOOD);
            set(0, most);
            ASSERT_EQ(durable_commit(D), DURABLE_GOOD);
        }
        EXPECT_TRUE(mix.shown() == before);
    }
    EXPECT_GE(done, 1u);
    EXPECT_GE(full, 1u) << "the pool has remembered everything, although it was full";
    EXPECT_EQ(pool.look().blocks, report.blocks);

    // What does not fit in a transaction is not written to the file either, whenever the process is killed.
    const pid_t child = fork();
    if (child == 0) {
        durable_begin(D);
        set(77, mix.roots().size());
        raise(SIGKILL);
    }
    waitpid(child, nullptr, 0);
    opened.reset();
    opened.emplace(path);
    TestDomain again(durable_domain_create(*opened, PLATFORM_NO_HANDLE), mode_of(false));
    Mix kept(again, 0, *opened);
    EXPECT_TRUE(kept.shown() == before);

    // Where little is remembered at a time, there is room to make room.
    for (const auto& [name, root] : kept.roots()) {
        ASSERT_EQ(durable_begin(again), DURABLE_GOOD);
        EXPECT_EQ(durable_root_remove(again, type.c_str(), name.c_str()), DURABLE_GOOD);
        destroy(type, again, root.x);
        ASSERT_EQ(durable_commit(again), DURABLE_GOOD) << durable_reason();
    }
    EXPECT_EQ(opened->look().roots, 0u);
}

TEST_F(Durable, TouchCoversWhatIsNotAnnounced) {
    const Pool pool(path, pool_size);
    TestDomain D(durable_domain_create(pool, ZUR_TRACKED_MODE), mode_of(true));
    Bytes bytes(D);
    const std::string list = "rcl_client_intf_templ_list", element = "rcl_client_intf_templ";
    ASSERT_EQ(durable_begin(D), DURABLE_GOOD);
    Instance* x = create(list, D);
    Instance* source = create(element, D);
    Instance* enumeration = create("coa_request_type", D);
    call(D, list, "data", "set", x, 0u, source, 0u);
    Random random{std::mt19937(5)};
    Tree t = draw(*record_named(element), {}, random);
    fill(D, t, source);
    ASSERT_EQ(D.st, 0u);
    ASSERT_EQ(durable_root_set(D, "x", x), DURABLE_GOOD);
    ASSERT_EQ(durable_root_set(D, "source", source), DURABLE_GOOD);
    ASSERT_EQ(durable_root_set(D, "enumeration", enumeration), DURABLE_GOOD);
    ASSERT_EQ(durable_commit(D), DURABLE_GOOD);
    bytes.keep();
    const auto undo = [&](void* block, const std::function<void()>& change) {
        ASSERT_EQ(durable_begin(D), DURABLE_GOOD);
        EXPECT_EQ(durable_touch(D, block), DURABLE_GOOD);
        change();
        EXPECT_EQ(D.st, 0u);
        ASSERT_EQ(durable_abort(D), DURABLE_GOOD);
        bytes.expect_kept();
    };
    undo(call<void*>(D, list, "data", "get", x, 0u), [&] { call(D, list, "data", "set", x, 0u, source, 0u); });
    undo(source, [&] { bare(D, element, "set_all_state_tracking_flag", source, 7u); });
    undo(enumeration, [&] { bare(D, "coa_request_type", "destroy", enumeration); });
}

// ---- who may open what, and when ----

durable_status open_status(const std::string& path) {
    durable_pool* pool = nullptr;
    const durable_status status = durable_open(path.c_str(), &pool);
    EXPECT_EQ(pool == nullptr, status != DURABLE_GOOD);
    durable_close(pool);
    return status;
}

TEST_F(Durable, OpensWhatItMade) {
    durable_pool* other = nullptr;
    EXPECT_EQ(open_status(path), DURABLE_NO_FILE);
    EXPECT_EQ(durable_create(path.c_str(), DURABLE_SMALLEST - 1, &other), DURABLE_BAD_ARGUMENT);
    EXPECT_EQ(durable_create((path + "/pool").c_str(), pool_size, &other), DURABLE_NO_FILE);
    std::uintptr_t address = 0;
    {
        const Pool pool(path, pool_size);
        EXPECT_EQ(durable_create(path.c_str(), pool_size, &other), DURABLE_EXISTS);
        EXPECT_EQ(open_status(path), DURABLE_IN_USE);
        Session session(pool, false, 1);
        for (unsigned n = 0; n < 20; ++n) session.run(n);
        ASSERT_FALSE(session.mix.roots().empty());
        address = reinterpret_cast<std::uintptr_t>(session.mix.roots().begin()->second.x) >> 36 << 36;
    }
    void* taken = mmap(reinterpret_cast<void*>(address), 4096, PROT_NONE, // NOLINT(*-no-int-to-ptr)
                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(taken), address);
    EXPECT_EQ(open_status(path), DURABLE_ADDRESS_TAKEN) << durable_reason();
    munmap(taken, 4096);
    EXPECT_EQ(open_status(path), DURABLE_GOOD) << durable_reason();

    std::ifstream in(path, std::ios::binary);
    const std::string image{std::istreambuf_iterator<char>(in), {}};
    const auto open_changed = [&](std::size_t offset, const std::string& bytes, std::size_t size) {
        std::ofstream(path, std::ios::binary)
            << std::string(image).replace(offset, bytes.size(), bytes).substr(0, size);
        return open_status(path);
    };
    // The address is the first word that the pool keeps, and the number of the build is the next.
    const std::size_t header =
        image.find(std::string(reinterpret_cast<const char*>(&address), sizeof address), 1 << 16);
    ASSERT_LT(header, image.size());
    EXPECT_EQ(open_changed(header + 8, "another", image.size()), DURABLE_OTHER_BUILD);
    EXPECT_EQ(open_changed(header + 16, "\1", image.size()), DURABLE_DAMAGED); // the list of types
    EXPECT_EQ(open_changed(0, "no such thing", image.size()), DURABLE_DAMAGED);
    EXPECT_EQ(open_changed(0, "", image.size() / 2), DURABLE_DAMAGED);
    EXPECT_EQ(open_changed(0, "", 0), DURABLE_DAMAGED);
    EXPECT_EQ(open_changed(0, "", image.size()), DURABLE_GOOD);
    if (std::filesystem::exists(pmempool)) {
        std::filesystem::remove(path);
        EXPECT_EQ(std::system((pmempool + (" create --layout other obj " + path)).c_str()), 0);
        EXPECT_EQ(open_status(path), DURABLE_OTHER_LAYOUT);
    }
}

TEST_F(Durable, OneTransactionAtATime) {
    const Pool pool(path, pool_size), beside(path + "2", pool_size);
    Session session(pool, false, 1), of_beside(beside, true, 2);
    for (unsigned n = 0; n < 60; ++n) session.run(n), of_beside.run(n);
    // A second Domain of the pool speaks variant 0.
    TestDomain old(durable_domain_create(pool, PLATFORM_NO_HANDLE), mode_of(false));
    old.agree_all(0);
    TestDomain& D = session.D;
    const std::string type = "orlan_ial_svm_acl_data";
    EXPECT_EQ(create(type, D), nullptr) << "outside of a transaction nothing is allocated";
    EXPECT_EQ(durable_commit(D), DURABLE_NO_TRANSACTION);
    EXPECT_EQ(durable_begin(old), DURABLE_GOOD);
    EXPECT_EQ(durable_begin(D), DURABLE_BUSY);
    EXPECT_EQ(durable_begin(of_beside.D), DURABLE_BUSY);
    EXPECT_EQ(durable_abort(D), DURABLE_NO_TRANSACTION);
    Instance* x = create(type, old);
    Instance outside{};
    EXPECT_EQ(x->variant, 0);
    EXPECT_EQ(durable_root_set(old, "", x), DURABLE_BAD_ARGUMENT);
    EXPECT_EQ(durable_root_set(old, "a", &outside), DURABLE_BAD_ARGUMENT);
    EXPECT_EQ(durable_touch(old, &outside), DURABLE_BAD_ARGUMENT);
    EXPECT_EQ(durable_root_set(old, "a", x), DURABLE_GOOD);
    EXPECT_EQ(durable_root_set(old, "a", x), DURABLE_EXISTS);
    EXPECT_EQ(durable_root_remove(old, type.c_str(), "b"), DURABLE_ABSENT);
    EXPECT_EQ(durable_commit(old), DURABLE_GOOD);
    EXPECT_EQ(durable_root(pool, type.c_str(), "a"), x);
    EXPECT_EQ(durable_root(pool, "webauth_watch_list", "a"), nullptr);

    EXPECT_EQ(durable_begin(D), DURABLE_GOOD);
    call(D, type, "acl_name", "set", x, "guests", 6u); // raises the variant
    EXPECT_EQ(durable_touch(D, x), DURABLE_GOOD);
    x->flags = 0xFF; // nobody announces this
    EXPECT_EQ(durable_abort(D), DURABLE_GOOD);
    EXPECT_EQ(x->variant, 0);
    EXPECT_EQ(x->flags, 0);
    // The closing NUL of fixed characters is not announced.
    const std::string vlan = "rcl_client_vlan_t";
    EXPECT_EQ(durable_begin(D), DURABLE_GOOD);
    Instance* y = create(vlan, D);
    call(D, vlan, "ieee_mac", "set", y, "abcdef", 6);
    EXPECT_EQ(durable_root_set(D, "v", y), DURABLE_GOOD);
    EXPECT_EQ(durable_commit(D), DURABLE_GOOD);
    EXPECT_EQ(durable_begin(D), DURABLE_GOOD);
    call(D, vlan, "ieee_mac", "set", y, "00", 2);
    EXPECT_EQ(durable_abort(D), DURABLE_GOOD);
    char text[32] = "";
    call(D, vlan, "ieee_mac", "get", y, &text[0], 32u);
    EXPECT_STREQ(text, "abcdef");

    // A counter has eight bytes, although one is announced.
    const auto count_more = [&](unsigned n) {
        EXPECT_EQ(durable_begin(D), DURABLE_GOOD);
        while (n-- != 0) destroy(vlan, D, create(vlan, D));
    };
    const zur_variant_table& counters = *y->type_info->variant_table;
    const std::uint64_t& created = counters.records[counters.count - 1].created;
    count_more(200);
    EXPECT_EQ(durable_commit(D), DURABLE_GOOD);
    const std::uint64_t before = created;
    count_more(100);
    EXPECT_EQ(created, before + 100);
    EXPECT_EQ(durable_abort(D), DURABLE_GOOD);
    EXPECT_EQ(created, before);

    EXPECT_DEATH(call(D, type, "sequence", "set_value", x, std::uint32_t{1}), "outside of a transaction");
    EXPECT_DEATH(destroy(type, D, x), "outside of a transaction");
    pool.look();
}

TEST_F(Durable, TrackedDomainsLearnOfOneAnother) {
    const Pool pool(path, pool_size);
    Session one(pool, true, 9), two(pool, true, 9);
    for (unsigned n = 0; n < 300 && !HasFailure(); ++n) {
        Session& next = n % 2 != 0 ? one : two;
        next.mix.load();
        next.run(n);
        (n % 2 != 0 ? two : one).mix.load();
        if (n % 10 != 9) continue;
        ASSERT_EQ(durable_begin(n % 2 != 0 ? two.D : one.D), DURABLE_GOOD);
        EXPECT_EQ(one.mix.shown(), two.mix.shown()); // the messages have the marks
        ASSERT_EQ(durable_abort(n % 2 != 0 ? two.D : one.D), DURABLE_GOOD);
    }
}

} // namespace
} // namespace epm::test
