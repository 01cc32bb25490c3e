// Reads the statements of a policy file. Like library calls, a series of reads is checked once, at its end: after the
// first fault every further read returns an empty value.
#include "policy.hpp"

#include <arpa/inet.h>
#include <charconv>
#include <initializer_list>
#include <limits>
#include <sstream>
#include <vector>

namespace exchange {

const char policy_format[] =
    R"(A policy file has one statement on a line. Blanks separate words; a word that starts with # begins a comment.
A name has at most 255 characters. Numbers are decimal, or hexadecimal behind 0x. What is in brackets may be left
out; such words may come in any order.

  access-list LIST entry SEQUENCE NAME ipv4|ipv6 create|remove
              [p-sequence N] [downloadable] [process N] [domain] [address A.B.C.D]
      One entry of a list. p-sequence is its second sequence number, process the process index; downloadable says that
      the list is a downloaded one, domain that the entry stands for a domain name. Only an ipv4 entry takes an address.
  apply LIST interface ID [priority N] [flag N]
      Applies a list to an interface; ID has up to 64 bits, each N up to 32.
  preauth create|remove
      Creates or removes the list that holds before a client is authenticated.
  download LIST succeeded|failed
      Tells how the download of a list ended.
)";

namespace {

constexpr std::size_t max_name = 255;

/// Quotes a word for a message, without control characters that would affect a terminal.
std::string quoted(std::string word) {
    for (char& letter : word)
        if (static_cast<unsigned char>(letter) < ' ' || letter == '\x7F') letter = '?';
    return "'" + word + "'";
}

class Words {
public:
    explicit Words(const std::string& line) {
        std::istringstream in(line);
        for (std::string word; in >> word && word[0] != '#';) words_.push_back(word);
    }

    bool good() const { return reason_.empty(); }
    bool more() const { return good() && next_ < words_.size(); }
    const std::string& reason() const { return reason_; }

    void refuse(const std::string& reason) {
        if (good()) reason_ = reason;
    }

    std::string word(const char* what) {
        if (more()) return words_[next_++];
        refuse("the line ends where " + std::string(what) + " is expected");
        return {};
    }

    std::string name(const char* what) {
        std::string found = word(what);
        if (found.size() > max_name) refuse(std::string(what) + " has at most 255 characters");
        return found;
    }

    void keyword(const std::string& expected) {
        const std::string found = word(quoted(expected).c_str());
        if (found != expected) refuse(quoted(found) + " instead of " + quoted(expected));
    }

    /// Returns true for the first of two words, false for the second.
    bool choice(const std::string& yes, const std::string& no) {
        const std::string either = quoted(yes) + " or " + quoted(no);
        const std::string found = word(either.c_str());
        if (found != yes && found != no) refuse(quoted(found) + " instead of " + either);
        return found == yes;
    }

    template <class Number>
    Number number(const char* what) {
        const std::string found = word(what);
        const bool is_hexadecimal = found.starts_with("0x");
        const char* end = found.data() + found.size();
        Number value = 0;
        const auto result =
            std::from_chars(found.data() + (is_hexadecimal ? 2 : 0), end, value, is_hexadecimal ? 16 : 10);
        if (result.ec != std::errc() || result.ptr != end)
            refuse(quoted(found) + " is not " + what + " from 0 to " +
                   std::to_string(std::numeric_limits<Number>::max()));
        return value;
    }

    uint32_t ipv4_address() {
        const std::string found = word("an IPv4 address");
        in_addr address = {};
        if (inet_pton(AF_INET, found.c_str(), &address) != 1) refuse(quoted(found) + " is not an IPv4 address");
        return ntohl(address.s_addr);
    }

private:
    std::vector<std::string> words_;
    std::size_t next_ = 0;
    std::string reason_;
};

struct Option {
    enum class Value { none, number, ipv4_address };
    std::string word;
    Value value;
    std::optional<uint32_t>* target;
};

void read_options(Words& words, std::initializer_list<Option> options) {
    while (words.more()) {
        const std::string word = words.word("an option");
        const Option* option = options.begin();
        while (option != options.end() && option->word != word) ++option;
        if (option == options.end()) return words.refuse(quoted(word) + " is not known here");
        if (option->target->has_value()) return words.refuse(quoted(word) + " is given twice");
        switch (option->value) {
        case Option::Value::none: *option->target = 1; break;
        case Option::Value::number: *option->target = words.number<uint32_t>("a number"); break;
        case Option::Value::ipv4_address: *option->target = words.ipv4_address(); break;
        }
    }
}

AccessEntry read_access_entry(Words& words) {
    AccessEntry entry;
    entry.list = words.name("the name of a list");
    words.keyword("entry");
    entry.sequence = words.number<uint32_t>("a sequence number");
    entry.name = words.name("the name of an entry");
    entry.is_ipv4 = words.choice("ipv4", "ipv6");
    entry.is_create = words.choice("create", "remove");
    read_options(words, {{"p-sequence", Option::Value::number, &entry.p_sequence},
                         {"downloadable", Option::Value::none, &entry.is_dacl},
                         {"process", Option::Value::number, &entry.process_index},
                         {"domain", Option::Value::none, &entry.is_domain},
                         {"address", Option::Value::ipv4_address, &entry.ip_addr}});
    if (entry.ip_addr && !entry.is_ipv4) words.refuse("only an ipv4 entry takes an address");
    return entry;
}

Application read_application(Words& words) {
    Application application;
    application.list = words.name("the name of a list");
    words.keyword("interface");
    application.interface_id = words.number<uint64_t>("an interface id");
    read_options(words, {{"priority", Option::Value::number, &application.priority},
                         {"flag", Option::Value::number, &application.flag}});
    return application;
}

} // namespace

std::optional<Statement> read_statement(const std::string& line, std::string& reason) {
    Words words(line);
    std::optional<Statement> statement;
    if (words.more()) {
        const std::string first = words.word("a statement");
        if (first == "access-list") {
            statement = read_access_entry(words);
        } else if (first == "apply") {
            statement = read_application(words);
        } else if (first == "preauth") {
            statement = PreAuthentication{words.choice("create", "remove")};
        } else if (first == "download") {
            Download download;
            download.list = words.name("the name of a list");
            download.is_success = words.choice("succeeded", "failed");
            statement = download;
        } else {
            words.refuse(quoted(first) + " begins no statement; access-list, apply, preauth and download do");
        }
        if (words.more()) words.refuse(quoted(words.word("a word")) + " after the end of the statement");
    }
    reason = words.reason();
    return words.good() ? statement : std::nullopt;
}

} // namespace exchange
