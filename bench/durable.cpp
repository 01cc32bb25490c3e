// What a change that survives costs: a setter of one of 1,000 records, in transactions of 1, 10 and 1,000 changes. A
// pool is beside LMDB, which stores the record's message, and SQLite, which stores it as JSON. Prints a part of the
// report.
//     epm_bench_durable FOLDER   the folder is where the files are; its file system is measured too
#include <durable/pool.h>
#include <orlan_epm.h>
#include <platform/domain.h>

#include <lmdb.h>
#include <sqlite3.h>

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr uint32_t S = ZUR_NO_SET;
constexpr unsigned records = 1000;

using Record = orlan_ial_svm_acl_data;

void require(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "epm_bench_durable: %s failed\n", what);
    std::exit(1);
}

Record* make_record(zur_domain* D, unsigned i) {
    uint32_t st = 0;
    Record* x = orlan_ial_svm_acl_data_create(D, S);
    const std::string entry = "permit-server-" + std::to_string(i);
    orlan_ial_svm_acl_data_acl_name_set(D, S, x, "GUEST-IN", 8, &st);
    orlan_ial_svm_acl_data_ace_name_set(D, S, x, entry.data(), static_cast<uint32_t>(entry.size()), &st);
    orlan_ial_svm_acl_data_sequence_set_value(D, S, x, i, &st);
    require(st == 0, "filling a record");
    return x;
}

void change(zur_domain* D, Record* x, uint32_t value) {
    uint32_t st = 0;
    orlan_ial_svm_acl_data_ip_addr_set_value(D, S, x, value, &st);
    require(st == 0, "a setter");
}

class Peer {
public:
    virtual ~Peer() = default;
    Peer() = default;
    Peer& operator=(Peer&&) = delete; // nor is it copied
    virtual void begin() = 0;
    virtual void change(unsigned record, uint32_t value) = 0;
    virtual void commit() = 0;
};

class Pool : public Peer {
public:
    explicit Pool(const std::string& path) {
        require(durable_create(path.c_str(), std::size_t{64} << 20, &pool_) == DURABLE_GOOD, "durable_create");
        D_ = durable_domain_create(pool_, PLATFORM_NO_HANDLE);
        Pool::begin();
        for (unsigned i = 0; i < records; ++i) {
            all_.push_back(make_record(D_, i));
            require(durable_root_set(D_, std::to_string(i).c_str(), all_.back()) == DURABLE_GOOD, "durable_root_set");
        }
        Pool::commit();
    }
    ~Pool() override { durable_close(pool_); }
    void begin() override { require(durable_begin(D_) == DURABLE_GOOD, "durable_begin"); }
    void change(unsigned record, uint32_t value) override { ::change(D_, all_[record], value); }
    void commit() override { require(durable_commit(D_) == DURABLE_GOOD, "durable_commit"); }

private:
    durable_pool* pool_ = nullptr;
    zur_domain* D_;
    std::vector<Record*> all_;
};

/// The records in memory, of which what a peer stores is made.
class Records {
public:
    Records() {
        for (unsigned i = 0; i < records; ++i) all_.push_back(make_record(D_.get(), i));
    }
    ~Records() {
        for (Record* x : all_) orlan_ial_svm_acl_data_destroy(D_.get(), S, x);
    }
    Records& operator=(Records&&) = delete; // nor is it copied

    Record* changed(unsigned i, uint32_t value) {
        change(D_.get(), all_[i], value);
        return all_[i];
    }
    std::string_view message(unsigned i, uint32_t value) {
        uint32_t st = 0;
        const uint32_t length =
            orlan_ial_svm_acl_data_marshal(D_.get(), S, buffer_, changed(i, value), sizeof buffer_ - 1, &st);
        require(st == 0, "marshal");
        return {buffer_, length};
    }
    std::string_view json(unsigned i, uint32_t value) {
        zur_domain* D = D_.get();
        Record* x = changed(i, value);
        uint32_t st = 0;
        char list[64], entry[64];
        orlan_ial_svm_acl_data_acl_name_get(D, S, x, list, sizeof list, &st);
        orlan_ial_svm_acl_data_ace_name_get(D, S, x, entry, sizeof entry, &st);
        const int length = std::snprintf(
            buffer_, sizeof buffer_,
            R"({"acl_name":"%s","ace_name":"%s","sequence":%u,"is_ipv4":%u,"is_create":%u,"process_index":%u,"ip_addr":%u})",
            list, entry, orlan_ial_svm_acl_data_sequence_get_value(D, S, x, &st),
            orlan_ial_svm_acl_data_is_ipv4_get_value(D, S, x, &st),
            orlan_ial_svm_acl_data_is_create_get_value(D, S, x, &st),
            orlan_ial_svm_acl_data_process_index_get_value(D, S, x, &st),
            orlan_ial_svm_acl_data_ip_addr_get_value(D, S, x, &st));
        require(st == 0, "reading a record");
        return {buffer_, static_cast<std::size_t>(length)};
    }

private:
    struct Destroy {
        void operator()(zur_domain* D) const { platform_domain_destroy(D); }
    };
    std::unique_ptr<zur_domain, Destroy> D_{platform_domain_create(nullptr)};
    std::vector<Record*> all_;
    char buffer_[1024];
};

class Lmdb : public Peer {
public:
    Lmdb(const std::string& path, bool is_synced) {
        std::filesystem::create_directory(path);
        require(mdb_env_create(&env_) == 0 && mdb_env_set_mapsize(env_, std::size_t{64} << 20) == 0 &&
                    mdb_env_open(env_, path.c_str(), is_synced ? 0u : unsigned{MDB_NOSYNC}, 0600) == 0,
                "LMDB");
        Lmdb::begin();
        require(mdb_dbi_open(txn_, nullptr, MDB_INTEGERKEY, &table_) == 0, "mdb_dbi_open");
        for (unsigned i = 0; i < records; ++i) Lmdb::change(i, 0);
        Lmdb::commit();
    }
    ~Lmdb() override { mdb_env_close(env_); }
    void begin() override { require(mdb_txn_begin(env_, nullptr, 0, &txn_) == 0, "mdb_txn_begin"); }
    void change(unsigned record, uint32_t value) override {
        const std::string_view message = records_.message(record, value);
        MDB_val key = {sizeof record, &record}, data = {message.size(), const_cast<char*>(message.data())};
        require(mdb_put(txn_, table_, &key, &data, 0) == 0, "mdb_put");
    }
    void commit() override { require(mdb_txn_commit(txn_) == 0, "mdb_txn_commit"); }

private:
    Records records_;
    MDB_env* env_ = nullptr;
    MDB_txn* txn_ = nullptr;
    MDB_dbi table_ = 0;
};

class Sqlite : public Peer {
public:
    Sqlite(const std::string& path, bool is_synced) {
        require(sqlite3_open(path.c_str(), &db_) == SQLITE_OK, "SQLite");
        run("PRAGMA journal_mode=WAL");
        run(is_synced ? "PRAGMA synchronous=FULL" : "PRAGMA synchronous=OFF");
        run("CREATE TABLE records(id INTEGER PRIMARY KEY, json TEXT)");
        require(sqlite3_prepare_v2(db_, "INSERT OR REPLACE INTO records VALUES(?, ?)", -1, &put_, nullptr) == SQLITE_OK,
                "sqlite3_prepare_v2");
        Sqlite::begin();
        for (unsigned i = 0; i < records; ++i) Sqlite::change(i, 0);
        Sqlite::commit();
    }
    ~Sqlite() override {
        sqlite3_finalize(put_);
        sqlite3_close(db_);
    }
    void begin() override { run("BEGIN"); }
    void change(unsigned record, uint32_t value) override {
        const std::string_view json = records_.json(record, value);
        sqlite3_bind_int(put_, 1, static_cast<int>(record));
        sqlite3_bind_text(put_, 2, json.data(), static_cast<int>(json.size()), SQLITE_STATIC);
        require(sqlite3_step(put_) == SQLITE_DONE && sqlite3_reset(put_) == SQLITE_OK, "sqlite3_step");
    }
    void commit() override { run("COMMIT"); }

private:
    void run(const char* statement) {
        require(sqlite3_exec(db_, statement, nullptr, nullptr, nullptr) == SQLITE_OK, statement);
    }

    Records records_;
    sqlite3* db_ = nullptr;
    sqlite3_stmt* put_ = nullptr;
};

/// The median microseconds of a change, each peer in turn in every round.
void measure(const std::string& folder, bool is_synced) {
    const std::vector<std::pair<const char*, std::shared_ptr<Peer>>> peers = {
        {"pool", std::make_shared<Pool>(folder + "/pool")},
        {"LMDB, message", std::make_shared<Lmdb>(folder + "/lmdb", is_synced)},
        {"SQLite, JSON", std::make_shared<Sqlite>(folder + "/sqlite", is_synced)}};
    std::vector<std::string> cells(peers.size());
    uint32_t value = 0;
    for (const unsigned changes : {1u, 10u, 1000u}) {
        std::vector<std::vector<double>> times(peers.size());
        const unsigned rounds = changes == 1000 ? 20 : is_synced ? 60 : 400;
        for (unsigned round = 0; round < rounds; ++round)
            for (std::size_t i = 0; i < peers.size(); ++i) {
                Peer& peer = *peers[i].second;
                const auto start = std::chrono::steady_clock::now();
                peer.begin();
                for (unsigned n = 0; n < changes; ++n, ++value) peer.change(value * 7919 % records, value);
                peer.commit();
                const std::chrono::duration<double, std::micro> took = std::chrono::steady_clock::now() - start;
                times[i].push_back(took.count() / changes);
            }
        for (std::size_t i = 0; i < peers.size(); ++i) {
            std::ranges::sort(times[i]);
            char text[32];
            std::snprintf(text, sizeof text, " %9.2f |", times[i][times[i].size() / 2]);
            cells[i] += text;
        }
    }
    for (std::size_t i = 0; i < peers.size(); ++i)
        std::printf("| %-17s | %-13s |%s\n", is_synced ? "a power cut" : "the process's end", peers[i].first,
                    cells[i].c_str());
}

/// libpmemobj reads its environment when it is loaded, so each kind of durability is a process of its own.
void measure_apart(char** argv, bool is_synced) {
    const pid_t child = fork();
    if (child == 0) {
        if (!is_synced) setenv("PMEM_IS_PMEM_FORCE", "1", 1);
        execl("/proc/self/exe", argv[0], argv[1], is_synced ? "synced" : "unsynced", nullptr);
        _exit(1);
    }
    int status = 0;
    require(waitpid(child, &status, 0) == child && status == 0, "a measurement");
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) return 2;
    if (argc == 3) {
        std::string folder = std::string(argv[1]) + "/durable.XXXXXX";
        require(mkdtemp(folder.data()) != nullptr, "mkdtemp");
        measure(folder, std::string(argv[2]) == "synced");
        std::filesystem::remove_all(folder);
        return 0;
    }
    std::printf(
        "## Changes that survive\n\n"
        "Microseconds of a change (median), of 1,000 records, in transactions of so many changes. Where only the\n"
        "process's end has to be survived, nothing waits for the disk.\n\n"
        "| what is survived  |               |         1 |        10 |     1,000 |\n"
        "|-------------------|---------------|----------:|----------:|----------:|\n");
    std::fflush(stdout);
    measure_apart(argv, true);
    measure_apart(argv, false);
    return 0;
}
