// Transactions of random changes to roots of all record types: setters, texts, arrays, lists, arms, moves, destruction.
// What a transaction does follows from its number and from what is there, so a Domain on malloc can do the same.
#pragma once

#include "support/model.hpp"

#include <durable/pool.h>

#include <algorithm>
#include <map>
#include <string>
#include <utility>

namespace epm::test {

class Mix {
public:
    struct Root {
        const Record* r;
        Instance* x;
    };

    /// Without a pool, roots are kept here alone.
    Mix(TestDomain& D, unsigned seed, durable_pool* pool = nullptr) : D_(D), seed_(seed), pool_(pool) { load(); }

    const std::map<std::string, Root>& roots() const { return roots_; }

    /// Whether the transaction ends with an abort.
    bool is_aborted(unsigned n) const { return random(n).once_in(5); }

    /// Reads the roots from the pool.
    void load() {
        if (pool_ == nullptr) return;
        roots_.clear();
        for (durable_root_info root{}; durable_root_next(pool_, &root) != 0;)
            roots_[root.name] = {record_named(root.type), static_cast<Instance*>(root.instance)};
    }

    /// The changes of a transaction, or the first ones. Stops when the status word is raised.
    unsigned run(unsigned n, unsigned most = 5) {
        Random random = this->random(n);
        random.number();
        const unsigned count = std::min(1 + random.below(5), most);
        for (unsigned i = 0; i < count && D_.st == 0; ++i) change(random);
        return count;
    }

    void destroy_all() {
        while (!roots_.empty()) destroy(roots_.begin()->first);
    }

    /// All that can be seen of the roots, which must be readable.
    std::string shown() {
        std::string text;
        for (const auto& [name, root] : roots_) {
            const Operations& ops = operations(*root.r);
            std::string image(1 << 17, '\0');
            image.resize(ops.marshal(D_, D_.set_id(), image.data(), root.x, 1 << 16, &D_.st));
            text += name + " " + ops.printed(D_, root.x, 0, name) + hex(image) + "\n";
            // A union whose tag selects an arm that it does not hold cannot be sent.
            if (D_.st == ZUR_ABSENT) D_.st = 0;
            EXPECT_EQ(D_.st, 0u) << root.r->name;
        }
        return text;
    }

    static const Operations& operations(const Record& r) {
        static std::map<const Record*, Operations> all;
        return all.try_emplace(&r, r.name).first->second;
    }

private:
    static constexpr unsigned most_roots = 8;

    Random random(unsigned n) const { return {std::mt19937(seed_ * 1000003 + n)}; }

    void keep(const std::string& name, const Record& r, Instance* x) {
        if (pool_ != nullptr && D_.st == 0 && durable_root_set(D_, name.c_str(), x) != DURABLE_GOOD)
            D_.st = ZUR_NO_MEMORY;
        roots_[name] = {&r, x};
    }
    Root release(const std::string& name) {
        const Root root = roots_.at(name);
        if (pool_ != nullptr) durable_root_remove(D_, root.r->name, name.c_str());
        roots_.erase(name);
        return root;
    }
    void destroy(const std::string& name) {
        const Root root = release(name);
        operations(*root.r).destroy(D_, D_.set_id(), root.x);
    }

    void change(Random& random) {
        const std::string name = "root" + std::to_string(random.below(most_roots));
        const auto found = roots_.find(name);
        if (found == roots_.end()) {
            const Record& r = *catalogue::all_records[random.below(catalogue::all_records.size())];
            Tree t = draw(r, {}, random);
            Instance* x = operations(r).create(D_, D_.set_id());
            if (x == nullptr) return void(D_.st = ZUR_NO_MEMORY);
            fill(D_, t, x);
            return D_.st == 0 ? keep(name, r, x) : operations(r).destroy(D_, D_.set_id(), x);
        }
        const auto [r, x] = found->second;
        if (random.once_in(6)) return destroy(name);
        if (random.once_in(5)) return move(name, *r, x);
        if (random.once_in(8)) return reread(name, *r, x);
        change(*r, x, random);
    }

    /// Another Instance takes the content over.
    void move(const std::string& name, const Record& r, Instance* x) {
        Instance* to = operations(r).create(D_, D_.set_id());
        if (to == nullptr) return void(D_.st = ZUR_NO_MEMORY);
        whole(D_, r, "set", to, x);
        destroy(name);
        keep(name, r, to);
    }

    /// A new Instance is read from what the root sends.
    void reread(const std::string& name, const Record& r, Instance* x) {
        const Operations& ops = operations(r);
        std::string image(1 << 17, '\0');
        image.resize(ops.marshal(D_, D_.set_id(), image.data(), x, 1 << 16, &D_.st));
        if (D_.st != 0) return void(D_.st = 0);
        Instance* to = ops.create(D_, D_.set_id());
        if (to == nullptr) return void(D_.st = ZUR_NO_MEMORY);
        ops.unmarshal(D_, D_.set_id(), image.data(), to, static_cast<std::int32_t>(image.size()), 0, &D_.st);
        if (D_.st != 0) return ops.destroy(D_, D_.set_id(), to);
        destroy(name);
        keep(name, r, to);
    }

    void change(const Record& r, Instance* x, Random& random) {
        Tree t = draw(r, {}, random);
        const std::size_t i = random.below(static_cast<unsigned>(r.count));
        const Field& f = r.fields[i];
        Cell& c = t.cells[i];
        const bool is_emptied = random.once_in(2);
        if (f.kind == Kind::embedded) return change(*f.record, call<Instance*>(D_, r, f, "get", x), random);
        if (r.is_union() && i == 0) return; // an arm's setter selects it
        if (f.kind == Kind::arm) { // its setter would not destroy a former one, and only the selected one can be taken
            call(D_, r, r.fields[0], "set_value", x, std::uint64_t{f.tag});
            if (auto* former = call<Instance*>(D_, r, f, "get_detach", x)) bare(D_, *f.record, "destroy", former);
            if (c.trees.empty() && !is_emptied) c.trees = {draw(*f.record, {}, random)};
        } else if (f.kind == Kind::array && (f.is_of_record() || is_emptied)) {
            bare(D_, r, std::string(f.name) + "_remove_elements", x);
        } else if (f.kind == Kind::list && (is_emptied || call<std::uint32_t>(D_, r, f, "get_count", x) > 2)) {
            while (auto* first = call<Instance*>(D_, r, f, "get_first", x)) {
                call(D_, r, f, "remove", x, first);
                bare(D_, *f.record, "destroy", first);
            }
        }
        if (D_.st == 0) fill(D_, t, f, c, x);
    }

    TestDomain& D_;
    unsigned seed_;
    durable_pool* pool_;
    std::map<std::string, Root> roots_;
};

} // namespace epm::test
