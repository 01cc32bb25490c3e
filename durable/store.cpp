// orlan-epm-store, which `orlan-epm store` runs, with an action, a file and the action's words: shows what is in a pool
// that no process has open. It works on a copy in memory. A program of its own, so that the tool runs where libpmemobj
// is not.
#include "tool/failure.hpp"
#include "tool/input.hpp"
#include "tool/operations.hpp"

#include <durable/pool.h>
#include <platform/domain.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <memory>
#include <vector>

namespace {

using namespace epm::tool;

constexpr std::uint32_t most_text = 64u << 20;

struct ClosePool {
    void operator()(durable_pool* pool) const { durable_close(pool); }
};
using Pool = std::unique_ptr<durable_pool, ClosePool>;

[[noreturn]] void refuse(durable_status status) {
    const bool is_file = status == DURABLE_NO_FILE || status == DURABLE_IN_USE || status == DURABLE_NO_LIBRARY;
    throw Failure{is_file ? has_no_file : is_damaged,
                  std::string(durable_status_text(status)) + ": " + durable_reason()};
}

/// The pool that is shown, and a Domain for it.
class Shown {
public:
    explicit Shown(const std::string& file) {
        durable_pool* pool = nullptr;
        if (const durable_status status = durable_open_copy(file.c_str(), &pool)) refuse(status);
        pool_.reset(pool);
        domain_ = durable_domain_create(pool, PLATFORM_NO_HANDLE);
        if (domain_ == nullptr) refuse(DURABLE_NO_MEMORY);
    }

    /// Calls f for each root that a name, or a type and a name, selects; for all where there is none.
    template <class F>
    void each(const std::vector<std::string>& names, const F& f) const {
        std::size_t count = 0;
        for (durable_root_info root{}; durable_root_next(pool_.get(), &root) != 0;) {
            const bool is_wanted =
                names.empty() || (names.back() == root.name && (names.size() == 1 || names.front() == root.type));
            if (!is_wanted) continue;
            ++count;
            f(root);
        }
        if (count == 0 && !names.empty()) throw Failure{is_damaged, "no root " + names.back()};
    }

    std::uint32_t length(const durable_root_info& root) const {
        return Operations(root.type).len(domain_, ZUR_NO_SET, instance(root));
    }

    std::string text(const durable_root_info& root) const {
        std::string text;
        const std::uint32_t st =
            write_text(text, 1u << 16, most_text, [&](char* buffer, std::uint32_t room, std::uint32_t* s) {
                return Operations(root.type).print(domain_, ZUR_NO_SET, buffer, 0, root.name, instance(root), room, s);
            });
        if (st != 0) throw Failure{is_damaged, std::string(root.name) + ": status " + std::to_string(st)};
        std::ranges::replace(text, '\0', ' '); // the print form leaves out a few bytes
        return text;
    }

    std::string message(const durable_root_info& root) const {
        std::string message(length(root) + std::size_t{1}, '\0');
        std::uint32_t st = 0;
        message.resize(Operations(root.type).marshal(domain_, ZUR_NO_SET, message.data(), instance(root),
                                                     static_cast<std::int32_t>(message.size()), &st));
        if (st != 0) throw Failure{is_damaged, std::string(root.name) + ": status " + std::to_string(st)};
        return message;
    }

    durable_report report() const {
        durable_report report{};
        durable_look(pool_.get(), &report);
        return report;
    }

private:
    static zur_instance* instance(const durable_root_info& root) { return static_cast<zur_instance*>(root.instance); }

    Pool pool_;
    zur_domain* domain_ = nullptr; ///< the pool's
};

void list(const Shown& shown) {
    std::size_t widest = 4;
    shown.each({},
               [&](const durable_root_info& root) { widest = std::max(widest, std::string_view(root.type).size()); });
    std::cout << std::left << std::setw(static_cast<int>(widest)) << "type"
              << "  " << std::setw(6) << "bytes"
              << "  name\n";
    shown.each({}, [&](const durable_root_info& root) {
        std::cout << std::setw(static_cast<int>(widest)) << root.type << "  " << std::setw(6) << shown.length(root)
                  << "  " << escaped(std::string_view(root.name)) << '\n';
    });
}

/// A root's name as that of a file: other characters as hexadecimal digits.
std::string file_name(const durable_root_info& root) {
    std::string name = std::string(root.type) + '.';
    for (const char c : std::string_view(root.name))
        if (std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '-' || c == '_' || c == '.')
            name += c;
        else
            name += '%' + to_hex(std::vector<std::uint8_t>{static_cast<std::uint8_t>(c)});
    return name + ".bin";
}

void check(const std::string& file) {
    if (const durable_status status = durable_check(file.c_str())) refuse(status);
    const durable_report report = Shown(file).report();
    std::cout << "consistent: " << report.roots << " roots, " << report.blocks << " blocks, " << report.bytes << " of "
              << report.size << " bytes\n";
    if (report.lost != 0) std::cout << "nothing refers to " << report.lost << " of the blocks\n";
    if (report.damaged_roots != 0)
        throw Failure{is_damaged, std::to_string(report.damaged_roots) + " roots have lost their Instance"};
}

void run(const std::vector<std::string>& arguments) {
    if (arguments.size() < 2) throw Failure{is_bad_call, "this program is run by orlan-epm store"};
    const std::string& action = arguments[0];
    const std::string& file = arguments[1];
    const std::vector<std::string> rest(arguments.begin() + 2, arguments.end());
    if (action == "check") return check(file);
    const Shown shown(file);
    if (action == "show")
        shown.each(rest, [&](const durable_root_info& root) { std::cout << shown.text(root); });
    else if (action == "export")
        shown.each({}, [&](const durable_root_info& root) {
            write_file((std::filesystem::path(rest.at(0)) / file_name(root)).string(), shown.message(root));
        });
    else
        list(shown);
}

} // namespace

int main(int argc, char** argv) {
    int status = is_good;
    try {
        run({argv + 1, argv + argc});
    } catch (const Failure& failure) {
        status = failure.status;
        std::cerr << "orlan-epm: " << escaped(failure.reason) << '\n';
    } catch (const std::exception& error) { // out of memory, for one
        status = has_no_file;
        std::cerr << "orlan-epm: " << error.what() << '\n';
    }
    std::cout.flush();
    return std::cout ? status : has_no_file;
}
