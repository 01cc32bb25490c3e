// Puts one run's measurements together: a table for each operation, the goals and whether they are met, the cost of an
// element over the number of elements. Reads FOLDER/{counts,times,allocations,sizes,facts}.csv, prints the report, and
// leaves report.csv and what the plots are drawn from in the same folder. It measures nothing.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace {

using Values = std::map<std::string, double>;

const std::vector<std::string> workloads = {"W1", "W2", "W3", "W4"};
const std::vector<std::string> operations = {"marshal", "unmarshal", "clone", "compare", "hash",
                                             "fill",    "read",      "print", "to_xml",  "from_xml"};
const std::vector<std::string> peers = {"ours",        "flat", "call",    "memcpy",  "protobuf",
                                        "flatbuffers", "xdr",  "pugixml", "tracked", "spelled"};

/// What the project wants of itself. A goal holds where the library's instructions are at most `factor` times the
/// peer's, or below them where the factor is 1: "ahead".
struct Goal {
    const char* operation;
    const char* workloads;
    const char* peer;
    double factor;
};

constexpr Goal goals[] = {
    {"marshal", "W1 W2 W4", "protobuf", 1},
    {"marshal", "W3", "protobuf", 1.5},
    {"marshal", "W1 W2 W3 W4", "flatbuffers", 1},
    {"marshal", "W1 W2 W3 W4", "xdr", 1},
    {"marshal", "W1 W2 W4", "call", 1.25},
    {"unmarshal", "W1 W2 W3 W4", "protobuf", 1},
    {"unmarshal", "W1 W2 W3 W4", "flatbuffers", 1},
    {"unmarshal", "W1 W2 W3 W4", "xdr", 1},
    {"unmarshal", "W1 W2 W4", "call", 1.4},
    {"clone", "W2 W4", "protobuf", 1},
    {"clone", "W1 W3", "protobuf", 1.5},
    {"compare", "W1 W2 W3 W4", "flat", 2},
    {"fill", "W1", "protobuf", 1.5},
    {"fill", "W2 W3 W4", "protobuf", 1},
    {"print", "W1 W2", "protobuf", 0.5},
    {"to_xml", "W1 W2", "protobuf", 0.5},
    {"print", "W2", "spelled", 0.5},
    {"to_xml", "W2", "spelled", 0.5},
    {"from_xml", "W1 W2 W3 W4", "protobuf", 1},
    {"from_xml", "W1 W2 W3 W4", "pugixml", 2},
    // Tracked over untracked: here the library is its own peer, and the ratio is turned round.
    {"marshal", "W1 W2 W4", "tracked", 1.35},
    {"unmarshal", "W1 W2 W4", "tracked", 1.35},
};
constexpr double hash_bytes_per_nanosecond = 1;
constexpr double spread_percent = 15;
constexpr double text_megabytes = 1.3;
constexpr double load_milliseconds = 2;
constexpr int scale[] = {0, 10, 100, 1000, 10000, 100000};

Values read(const std::string& path, int column) {
    Values values;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        const std::size_t comma = line.find(',');
        if (comma == line.npos) continue;
        // The tracked form of an operation stands in the table as a column beside the others.
        std::string name = line.substr(0, comma);
        if (const std::size_t at = name.find("_tracked/ours"); at != name.npos) name = name.substr(0, at) + "/tracked";
        std::size_t at = comma;
        for (int i = 1; i < column && at != line.npos; ++i) at = line.find(',', at + 1);
        if (at != line.npos) values[name] = std::strtod(line.c_str() + at + 1, nullptr);
    }
    return values;
}

std::optional<double> find(const Values& values, const std::string& name) {
    const auto found = values.find(name);
    return found == values.end() ? std::nullopt : std::optional(found->second);
}

struct Run {
    Values counts, floors, times, allocations, sizes, facts;
};

std::string number(double value) {
    char text[32];
    std::snprintf(text, sizeof text, value < 10 && value != std::floor(value) ? "%.1f" : "%.0f", value);
    std::string grouped = text;
    if (grouped.find('.') == grouped.npos)
        for (std::size_t at = grouped.size(); at > 3; at -= 3) grouped.insert(at - 3, ",");
    return grouped;
}

std::string ratio(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.2f", value);
    return text;
}

/// Rows of cells, aligned; a table on a terminal and in Markdown alike.
class Table {
public:
    explicit Table(std::vector<std::string> head) : rows_{std::move(head)} {}
    void add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }
    void print() const {
        std::vector<std::size_t> widths(rows_[0].size());
        for (const auto& row : rows_)
            for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
        for (std::size_t r = 0; r < rows_.size(); ++r) {
            for (std::size_t i = 0; i < widths.size(); ++i)
                std::printf(i == 0 ? "| %-*s |" : " %*s |", static_cast<int>(widths[i]), rows_[r][i].c_str());
            std::printf("\n");
            if (r != 0) continue;
            for (std::size_t i = 0; i < widths.size(); ++i)
                std::printf("%s%s%s", i == 0 ? "|" : "", std::string(widths[i] + 1, '-').c_str(), i == 0 ? "-|" : ":|");
            std::printf("\n");
        }
        std::printf("\n");
    }

private:
    std::vector<std::vector<std::string>> rows_;
};

void operation_table(const Run& run, const std::string& operation) {
    std::vector<std::string> present;
    for (const std::string& peer : peers)
        if (std::any_of(workloads.begin(), workloads.end(),
                        [&](const std::string& w) { return run.counts.contains(w + "/" + operation + "/" + peer); }))
            present.push_back(peer);
    std::printf("### %s\n\n", operation.c_str());
    std::vector<std::string> head = {"", "each"};
    head.insert(head.end(), present.begin(), present.end());
    Table table(head);
    const std::pair<const char*, const Values*> kinds[] = {
        {"instructions", &run.counts}, {"ns", &run.times}, {"allocations", &run.allocations}, {"bytes", &run.sizes}};
    for (const std::string& workload : workloads)
        for (const auto& [kind, values] : kinds) {
            std::vector<std::string> row = {values == &run.counts ? workload : "", kind};
            bool any = false;
            for (const std::string& peer : present) {
                const auto value = find(*values, workload + "/" + operation + "/" + peer);
                any |= value.has_value();
                row.push_back(value ? number(*value) : "");
            }
            if (any) table.add(row);
        }
    table.print();
}

struct Verdicts {
    int met = 0, missed = 0, out_of_reach = 0, unknown = 0;
    std::string add(std::optional<bool> holds) {
        if (!holds) return ++unknown, "not measured";
        return *holds ? (++met, "met") : (++missed, "NOT MET");
    }
    std::string add_out_of_reach() { return ++out_of_reach, "out of reach"; }
};

void goal_table(const Run& run, Verdicts& verdicts) {
    std::printf(
        "## Goals\n\n"
        "Ratio of the library to the peer; instructions decide, the times stand beside them. The floor is the ratio\n"
        "of what the runtime itself executes, with nine instructions for each call that the contract has the library\n"
        "make: where it is above the limit, no library can meet the goal on this runtime. Text is mostly the "
        "runtime's\n"
        "own work, so there is no such floor.\n\n");
    Table table({"goal", "instructions", "times", "limit", "floor", ""});
    for (const Goal& goal : goals)
        for (const std::string& workload : workloads) {
            if (std::string(goal.workloads).find(workload) == std::string::npos) continue;
            const std::string stem = workload + "/" + goal.operation + "/";
            const bool tracked = std::string(goal.peer) == "tracked";
            const auto of = [&](const Values& values) -> std::optional<double> {
                const auto a = find(values, stem + (tracked ? "tracked" : "ours"));
                const auto b = find(values, stem + (tracked ? "ours" : goal.peer));
                return a && b && *b > 0 ? std::optional(*a / *b) : std::nullopt;
            };
            const auto counts = of(run.counts), times = of(run.times);
            const bool ahead = goal.factor == 1;
            const auto is_within = [&](double value) { return ahead ? value < 1 : value <= goal.factor; };
            std::optional<bool> holds;
            if (counts) holds = is_within(*counts);
            std::optional<double> floor;
            const bool is_text =
                std::string(goal.operation).starts_with("print") || std::string(goal.operation).ends_with("_xml");
            if (const auto least = find(run.floors, stem + "ours"); least && counts && !tracked && !is_text)
                floor = *least / *find(run.counts, stem + "ours") * *counts;
            table.add({workload + " " + goal.operation +
                           (tracked ? ", tracked to untracked" : " to " + std::string(goal.peer)),
                       counts ? ratio(*counts) : "", times ? ratio(*times) : "",
                       ahead ? "< 1" : "<= " + ratio(goal.factor), floor ? ratio(*floor) : "",
                       floor && !is_within(*floor) ? verdicts.add_out_of_reach() : verdicts.add(holds)});
        }
    table.print();

    Table facts({"goal", "measured", "limit", ""});
    const auto hash_time = find(run.times, "W3/hash/ours"), hash_size = find(run.sizes, "W3/hash/ours");
    const bool hashed = hash_time && hash_size;
    const double speed = hashed ? *hash_size / *hash_time : 0;
    facts.add({"W3 hash, bytes for each ns", hashed ? ratio(speed) : "", ">= " + ratio(hash_bytes_per_nanosecond),
               verdicts.add(hashed ? std::optional(speed >= hash_bytes_per_nanosecond) : std::nullopt)});
    const auto fact = [&](const char* name, const char* said, double limit, double unit) {
        const auto value = find(run.facts, name);
        facts.add({said, value ? ratio(*value / unit) : "", "<= " + ratio(limit),
                   verdicts.add(value ? std::optional(*value / unit <= limit) : std::nullopt)});
    };
    fact("text_bytes", "stripped library, text, MB", text_megabytes, 1e6);
    fact("load_milliseconds", "loading it with all it needs, ms", load_milliseconds, 1);
    fact("text_relocations", "text relocations", 0, 1);
    facts.print();
}

/// What each further element costs, from one number of elements to the next.
std::optional<double> element(const Values& values, const std::string& workload, const std::string& operation, int from,
                              int to) {
    const auto of = [&](int n) { return find(values, workload + "x" + std::to_string(n) + "/" + operation + "/ours"); };
    const auto less = of(from), more = of(to);
    return less && more ? std::optional((*more - *less) / (to - from)) : std::nullopt;
}

void scale_tables(const Run& run, const std::string& folder, Verdicts& verdicts) {
    std::printf(
        "## Scale\n\n"
        "What each further element costs from one number of elements to the next. The first ten pay for what is done\n"
        "once; the spread, between the dearest and the cheapest, goes from ten up. Instructions decide. Reading XML\n"
        "grows an array by one element at a time, by contract: quadratic, no goal, and measured up to fewer.\n\n");
    for (const auto& [kind, values] : {std::pair{"instructions", &run.counts}, std::pair{"ns", &run.times}}) {
        std::vector<std::string> head = {kind};
        for (std::size_t i = 1; i < std::size(scale); ++i) head.push_back("to " + number(scale[i]));
        head.insert(head.end(), {"spread", ""});
        Table table(head);
        std::ofstream data(folder + "/scale_" + kind + ".dat");
        for (const std::string workload : {"W3", "W4"})
            for (const std::string& operation : operations) {
                if (!run.counts.contains(workload + "x0/" + operation + "/ours")) continue;
                std::vector<std::string> row = {workload + " " + operation};
                double least = INFINITY, most = 0;
                data << '"' << row[0] << "\"\n";
                for (std::size_t i = 1; i < std::size(scale); ++i) {
                    const auto cost = element(*values, workload, operation, scale[i - 1], scale[i]);
                    char text[32] = "";
                    if (cost) {
                        if (i > 1) least = std::min(least, *cost), most = std::max(most, *cost);
                        std::snprintf(text, sizeof text, "%.2f", *cost);
                        data << scale[i] << ' ' << *cost << '\n';
                    }
                    row.push_back(text);
                }
                data << "\n\n";
                const double spread = (most / least - 1) * 100;
                const bool known = least > 0 && least <= most;
                row.push_back(known ? number(std::round(spread)) + " %" : "");
                if (values == &run.times)
                    row.push_back("");
                else if (operation == "from_xml")
                    row.push_back("by contract");
                else
                    row.push_back(verdicts.add(known ? std::optional(spread <= spread_percent) : std::nullopt));
                table.add(row);
            }
        table.print();
    }
}

/// Every measurement in one file, and the rivals' instructions as multiples of the library's for the plot.
void write_files(const Run& run, const std::string& folder) {
    std::ofstream csv(folder + "/report.csv");
    csv << "workload,operation,peer,instructions,ns,allocations,bytes\n";
    for (const auto& [name, count] : run.counts) {
        std::string columns = name;
        std::replace(columns.begin(), columns.end(), '/', ',');
        csv << columns << ',' << count;
        for (const Values* values : {&run.times, &run.allocations, &run.sizes}) {
            csv << ',';
            if (const auto value = find(*values, name)) csv << *value;
        }
        csv << '\n';
    }
    const std::vector<std::string> shown = {"flat", "call", "protobuf", "flatbuffers", "xdr", "pugixml"};
    std::ofstream plot(folder + "/rivals.dat");
    plot << "-";
    for (const std::string& peer : shown) plot << ' ' << peer;
    plot << '\n';
    for (const std::string& operation : operations)
        for (const std::string& workload : workloads) {
            const std::string stem = workload + "/" + operation + "/";
            std::string line;
            bool any = false;
            for (const std::string& peer : shown) {
                const auto theirs = find(run.counts, stem + peer), ours = find(run.counts, stem + "ours");
                any |= theirs && ours;
                line += theirs && ours ? " " + std::to_string(*theirs / *ours) : " NaN";
            }
            if (any) plot << '"' << workload << ' ' << operation << '"' << line << '\n';
        }
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s FOLDER\n", argv[0]);
        return 2;
    }
    const std::string folder = argv[1];
    const auto of = [&](const char* name, int column = 1) { return read(folder + "/" + name + ".csv", column); };
    const Run run = {of("counts"), of("counts", 2), of("times"), of("allocations"), of("sizes"), of("facts")};
    if (run.counts.empty()) {
        std::fprintf(stderr, "%s/counts.csv holds nothing\n", folder.c_str());
        return 1;
    }
    std::printf(
        "# Benchmark report\n\n"
        "One operation's instructions (callgrind), time (median), allocations, and the bytes that it reads or\n"
        "writes. W1: a message with one entry of a list. W2: a message with all grants to a client. W3: a VLAN\n"
        "group of 4,094. W4: 200 domain names. `flat`, `call` and `memcpy` are references, not rivals; for print\n"
        "and XML, protobuf's column is its TextFormat; `tracked` is the library in tracked mode.\n\n");
    for (const char* peer : {"protobuf", "flatbuffers", "xdr", "pugixml"})
        if (std::none_of(run.counts.begin(), run.counts.end(),
                         [&](const auto& entry) { return entry.first.ends_with(std::string("/") + peer); }))
            std::printf("%s is not on this machine and is left out.\n\n", peer);
    for (const std::string& operation : operations) operation_table(run, operation);
    Verdicts verdicts;
    goal_table(run, verdicts);
    scale_tables(run, folder, verdicts);
    std::printf("%d goals met, %d not met, %d out of reach, %d not measured.\n", verdicts.met, verdicts.missed,
                verdicts.out_of_reach, verdicts.unknown);
    write_files(run, folder);
    return 0;
}
