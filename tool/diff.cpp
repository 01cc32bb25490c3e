// Compares the JSON forms of the messages member by member.
#include "tool/diff.hpp"

#include "tool/json_message.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace epm::tool {

namespace {

using Json = nlohmann::ordered_json;

class Diff {
public:
    explicit Diff(bool has_state_flags) : has_state_flags_(has_state_flags) {}

    /// Either is null if its message has nothing at this path.
    void compare(const Json* a, const Json* b, const std::string& path) {
        const Json& some = a != nullptr ? *a : *b;
        if (a != nullptr && b != nullptr && a->type() != b->type()) return differ(a, b, path);
        if (some.is_array()) {
            for (std::size_t i = 0; i < std::max(size(a), size(b)); ++i)
                compare(i < size(a) ? &(*a)[i] : nullptr, i < size(b) ? &(*b)[i] : nullptr,
                        path + "[" + std::to_string(i) + "]");
        } else if (some.is_object()) {
            const auto visit = [&](const std::string& name) {
                if (name != json_member::state || has_state_flags_)
                    compare(member(a, name), member(b, name), path.empty() ? name : path + "." + name);
            };
            if (a != nullptr)
                for (const auto& [name, value] : a->items()) visit(name);
            if (b != nullptr)
                for (const auto& [name, value] : b->items())
                    if (member(a, name) == nullptr) visit(name);
        } else if (++fields; a == nullptr || b == nullptr || *a != *b) {
            --fields;
            differ(a, b, path);
        }
    }

    struct Difference {
        std::string path;
        const Json *a, *b;
    };
    std::vector<Difference> differences;
    std::size_t fields = 0;

private:
    static std::size_t size(const Json* array) { return array != nullptr ? array->size() : 0; }
    static const Json* member(const Json* object, const std::string& name) {
        if (object == nullptr) return nullptr;
        const auto found = object->find(name);
        return found != object->end() ? &*found : nullptr;
    }

    void differ(const Json* a, const Json* b, const std::string& path) {
        ++fields;
        differences.push_back({path, a, b});
    }

    const bool has_state_flags_;
};

} // namespace

bool show_diff(const Type& type, const std::string& a, const std::string& b, DiffForm form, std::ostream& out) {
    const Json first = Json::parse(a), second = Json::parse(b);
    Diff diff(form.has_state_flags);
    diff.compare(&first, &second, "");
    const std::size_t count = diff.differences.size();
    if (form.is_json) {
        Json list = Json::array();
        for (const auto& one : diff.differences)
            list.push_back({{"path", one.path},
                            {"a", one.a != nullptr ? *one.a : Json()},
                            {"b", one.b != nullptr ? *one.b : Json()}});
        out << Json{{"type", type.name}, {"fields", diff.fields}, {"differences", list}}.dump(2) << '\n';
        return count != 0;
    }
    for (const auto& [path, old, now] : diff.differences) {
        const std::string name = path.empty() ? "value" : path;
        if (old != nullptr && now != nullptr)
            out << "~ " << name << ' ' << old->dump() << " -> " << now->dump() << '\n';
        else
            out << (old != nullptr ? "- " : "+ ") << name << ' ' << (old != nullptr ? old : now)->dump() << '\n';
    }
    if (count != 0)
        out << count << " of " << diff.fields << (diff.fields == 1 ? " field differs\n" : " fields differ\n");
    return count != 0;
}

} // namespace epm::tool
