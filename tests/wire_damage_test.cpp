// What a peer's bytes may do to a reader: every golden image cut at every length and damaged at every byte, into fresh
// and used records, with reuse and without. No crash, no byte read beyond what the form allows (buffers are exact, for
// a sanitizer to see), no leak, little memory, little time; and a used record can be read into again afterwards.
#include "support/wire.hpp"

#include <cstring>
#include <ctime>
#include <memory>
#include <set>

namespace epm::test {
namespace {

constexpr std::size_t most_memory = 1 << 20;
constexpr double most_milliseconds = 10;

double cpu_milliseconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

/// Whether a record holds, at any depth, an array of records. Without reuse such an array's storage is freed without
/// destroying its elements: by contract, whoever reads into a used record like this must release what they own.
bool holds_array_of_records(const Record& r) {
    return r.any([](const Field& f) {
        return f.is_of_record() && (f.kind == Kind::array || holds_array_of_records(*f.record));
    });
}

/// A buffer of exactly these bytes, and in tracked mode the one behind it that a flag may be taken from.
class ExactBuffer {
public:
    ExactBuffer(const Bytes& image, std::size_t length, bool is_tracked)
        : bytes_(std::make_unique<std::uint8_t[]>(length + (is_tracked ? 1 : 0))),
          length_(static_cast<std::int32_t>(length)) {
        std::memcpy(bytes_.get(), image.data(), length);
    }
    std::uint8_t* data() const { return bytes_.get(); }
    std::int32_t length() const { return length_; }

private:
    std::unique_ptr<std::uint8_t[]> bytes_;
    std::int32_t length_;
};

/// Reads damaged images of one specimen.
class Victim {
public:
    Victim(const Specimen& s, const Bytes& image, const Mode& mode)
        : specimen_(s), type_(*s.type), D_(mode), whole_(image, image.size(), true) {
        D_.agree_all(std::max(s.variant, 0));
        used_ = type_.create(D_, D_.set_id());
        restore();
        reference_ = type_.create(D_, D_.set_id());
        std::uint32_t st = 0;
        type_.unmarshal(D_, D_.set_id(), whole_.data(), reference_, whole_.length(), 0, &st);
        loses_elements_ = !type_.is_enum() && holds_array_of_records(*type_.record);
        blocks_ = heap().blocks().size();
    }
    ~Victim() {
        type_.destroy(D_, D_.set_id(), used_);
        type_.destroy(D_, D_.set_id(), reference_);
        if (!loses_elements_) return;
        while (!heap().blocks().empty()) heap().release(heap().blocks().begin()->first);
    }

    void read(const ExactBuffer& damaged) {
        for (const std::uint32_t reuse : {0u, 1u}) {
            const std::size_t blocks_before = heap().blocks().size();
            Instance* fresh = type_.create(D_, D_.set_id());
            const std::uint32_t status = read(damaged, fresh, reuse);
            // What was accepted is a record like any other.
            if (status == 0 && fresh->variant >= 0) {
                EXPECT_EQ(type_.compare(fresh, fresh), 0);
                type_.hash(fresh, 1);
            }
            type_.destroy(D_, D_.set_id(), fresh);
            EXPECT_EQ(heap().blocks().size(), blocks_before) << type_.name << ": a fresh record loses nothing";
            read(damaged, used_, reuse);
            restore();
        }
    }
    /// Nothing has been lost.
    void check(const std::string& what) {
        drop_other_arms();
        if (loses_elements_) return;
        EXPECT_EQ(heap().blocks().size(), blocks_) << what;
    }
    /// Every field of the used record holds what it did. (A whole comparison would also look at fields of a later
    /// variant that only damaged bytes have claimed, and an image would show a damaged flag byte's ra block.)
    void check_fields() {
        EXPECT_EQ(used_->variant, specimen_.variant);
        const bool has_fields = !type_.is_enum() && specimen_.variant >= 0;
        EXPECT_TRUE(has_fields ? Fill(D_, specimen_.seed).check(*type_.record, used_)
                               : !type_.is_enum() || type_.compare(used_, reference_) == 0);
    }

private:
    std::uint32_t read(const ExactBuffer& from, Instance* x, std::uint32_t reuse) {
        std::uint32_t st = 0;
        double spent = read(from, x, reuse, st);
        // A busy machine may hold up any one reading, but not the same one again and again.
        for (int again = 0; again < 9 && spent >= most_milliseconds; ++again) {
            Instance* fresh = type_.create(D_, D_.set_id());
            std::uint32_t ignored = 0;
            spent = read(from, fresh, reuse, ignored);
            type_.destroy(D_, D_.set_id(), fresh);
        }
        EXPECT_LT(spent, most_milliseconds) << type_.name;
        return st;
    }
    /// The milliseconds that it took.
    double read(const ExactBuffer& from, Instance* x, std::uint32_t reuse, std::uint32_t& st) {
        heap().refuse_beyond(most_memory);
        const double before = cpu_milliseconds();
        type_.unmarshal(D_, D_.set_id(), from.data(), x, from.length(), reuse, &st);
        const double spent = cpu_milliseconds() - before;
        heap().stop_refusing();
        return spent;
    }
    /// The image as it was, over whatever the damaged one has left. A negative variant, under which a record would not
    /// release its fields, does not outlive this.
    void restore() {
        std::uint32_t st = 0;
        EXPECT_EQ(type_.unmarshal(D_, D_.set_id(), whole_.data(), used_, whole_.length(), 1, &st),
                  static_cast<std::uint32_t>(whole_.length()))
            << type_.name;
        EXPECT_EQ(st, 0u) << type_.name;
    }
    /// A damaged tag makes arms that stay beside the selected one until the record goes.
    void drop_other_arms() {
        if (type_.is_enum() || !type_.record->is_union()) return;
        type_.destroy(D_, D_.set_id(), used_);
        used_ = type_.create(D_, D_.set_id());
        restore();
    }

    const Specimen& specimen_;
    const WireType& type_;
    TestDomain D_;
    ExactBuffer whole_;
    Instance* used_ = nullptr;
    Instance* reference_ = nullptr;
    std::size_t blocks_ = 0;
    bool loses_elements_ = false;
};

using Damage = CorpusTest;

// Also by a reader that tracks where the writer did not, and the other way round.
TEST_F(Damage, CutAtEveryLength) {
    for_each_image([&](const Specimen& s, const Bytes& image) {
        for (const Mode& mode : tracking_modes()) {
            Victim victim(s, image, mode);
            for (std::size_t length = 0; length < image.size(); ++length)
                victim.read(ExactBuffer(image, length, s.is_tracked));
            victim.check(s.text() + " read " + mode.text());
            victim.check_fields();
        }
    });
}

TEST_F(Damage, EveryByteChangedToOthers) {
    for_each_image([&](const Specimen& s, const Bytes& image) {
        Victim victim(s, image, s.mode());
        ExactBuffer buffer(image, image.size(), s.is_tracked);
        for (std::size_t i = 0; i < image.size(); ++i) {
            const std::uint8_t was = image[i];
            std::set<int> values;
            for (const int value :
                 {0, 1, 0x7F, 0x80, 0xFF, was + 1, was + 255, was ^ 0x10, was ^ 0x28, was ^ 0x55, was + 2})
                if (value % 256 != was && values.size() < 8) values.insert(value % 256);
            ASSERT_EQ(values.size(), 8u);
            for (const int value : values) {
                buffer.data()[i] = static_cast<std::uint8_t>(value);
                victim.read(buffer);
            }
            buffer.data()[i] = was;
            victim.check(s.text() + ", byte " + std::to_string(i));
            if (i % 32 == 0 || i + 1 == image.size()) victim.check_fields();
        }
    });
}

} // namespace
} // namespace epm::test
