// Every reading of the bytes as some type accepts much that no writer writes. Each such thing is a doubt.
#include "tool/guess.hpp"

#include "tool/failure.hpp"
#include "tool/table.hpp"
#include "tool/walk.hpp"

#include <zur/types.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <tuple>

namespace epm::tool {

namespace {

using Json = nlohmann::ordered_json;

/// Doubts that are shown of one reading, and counted.
constexpr std::size_t most_doubts = 100;

/// The doubt about a part, or nothing.
std::string doubt(const Part& part, ByteView bytes) {
    using Kind = Part::Kind;
    const auto of = [&](const std::string& text) { return part.path + ": " + text; };
    switch (part.kind) {
    case Kind::variant:
        if (static_cast<std::int8_t>(bytes[0]) < 0) return of("a type that the sender's peer does not know");
        break;
    case Kind::flags:
        if ((bytes[0] & ~(ZUR_TRACKED | ZUR_RA_DATA)) != 0) return of("unknown flags");
        break;
    case Kind::passed_over: return of(std::to_string(part.length) + " bytes of " + part.value);
    case Kind::remark: return of(part.value);
    case Kind::value:
        if (part.value.ends_with("(no enumerator)")) return of("no enumerator");
        if (part.type == "zur_boolean" && part.value != "0" && part.value != "1") return of("neither true nor false");
        if (part.type == "char" && std::ranges::any_of(bytes, [](std::uint8_t c) { return c != 0 && c < 0x20; }))
            return of("not a text");
        if (part.type == "zur_mac_addr" && bytes[0] == 0 && bytes[1] == 0 && bytes[2] == 0)
            return of("no vendor's address");
        break;
    case Kind::ra_block:
    case Kind::jump_word:
    case Kind::count:
    case Kind::prefix:
    case Kind::state_flags: break;
    }
    return {};
}

Guess guess_as(const Type& type, ByteView message) {
    Guess guess{&type, 0, 0, 0, {}, {}};
    if (type.is_enum() && !message.empty())
        guess.choices = type.enumeration->accepted(static_cast<std::int8_t>(message[0]));
    try {
        walk(type, message, [&](const Part& part) {
            if (guess.doubts.size() >= most_doubts) return;
            std::string text = doubt(part, message.subspan(part.offset, part.length));
            if (!text.empty()) guess.doubts.push_back(std::move(text));
        });
    } catch (const Damage& damage) {
        guess.offset = damage.offset;
        guess.fault = damage.reason;
    }
    return guess;
}

/// How well the bytes fit, the best first. Of two enumerations that have the number, the shorter one fits better.
auto fit(const Guess& guess) {
    const bool is_refused = !guess.fault.empty();
    return std::tuple(is_refused, is_refused ? ~guess.offset : guess.doubts.size(), guess.choices);
}

} // namespace

std::vector<Guess> guesses(ByteView message) {
    std::vector<Guess> all;
    for (const Type& type : all_types()) all.push_back(guess_as(type, message));
    std::ranges::stable_sort(all, {}, fit);
    for (std::size_t i = 0; i < all.size(); ++i)
        all[i].rank = i != 0 && fit(all[i]) == fit(all[i - 1]) ? all[i - 1].rank : i + 1;
    return all;
}

bool show_guesses(ByteView message, bool is_json, std::ostream& out) {
    const std::vector<Guess> all = guesses(message);
    Json list = Json::array();
    Table table;
    table.add({"rank", "type", "doubts, or why not"});
    for (const Guess& guess : all) {
        const bool can_be = guess.fault.empty();
        const Json rank = can_be ? Json(guess.rank) : Json();
        list.push_back({{"type", guess.type->name}, {"rank", rank}, {"doubts", guess.doubts}});
        if (!can_be) list.back()["fault"] = {{"offset", guess.offset}, {"reason", guess.fault}};
        std::string why = can_be ? "none" : "offset " + std::to_string(guess.offset) + ": " + guess.fault;
        if (can_be && !guess.doubts.empty())
            why = std::to_string(guess.doubts.size()) + ", such as " + guess.doubts.front();
        table.add({can_be ? rank.dump() : "-", guess.type->name, why});
    }
    is_json ? void(out << list.dump(2) << '\n') : table.write(out);
    return all.front().fault.empty();
}

} // namespace epm::tool
