// Whether the Bundle announces what it writes: at every call that it makes, and at the end of every exported operation,
// each byte of a live block that has changed must lie in a range announced since that operation began. Writes of the
// runtime and of the test are not the Bundle's and are let pass. It looks only while an operation of library.hpp runs.
// BundleTest has one; write_checker.cpp has the exceptions, with their reasons.
#pragma once

#include "support/observation.hpp"

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace epm::test {

class WriteChecker : public Observer {
public:
    WriteChecker();

    void enter_bundle(const Export* which) override;
    void leave_bundle() override;
    void before_call(const char* function, const Arguments&) override { look(std::string("before ") + function); }
    void after_call() override { accept(); }
    void announced(const void* address, std::size_t length) override;
    void allocated(void* block, std::size_t size, bool by_bundle) override;
    void releasing(void* block) override { images_.erase(static_cast<const unsigned char*>(block)); }
    void copied_type(const zur_type_info* copy) override { types_.insert(copy); }

private:
    struct Image {
        std::vector<unsigned char> bytes;
        std::vector<bool> announced;
        bool is_fresh; ///< taken by this operation, and nothing in it announced so far
    };

    void look(const std::string& when);
    void accept();
    bool is_excepted(const unsigned char* block, const unsigned char* address) const;
    /// The TypeInfo that the word there names, now or when it was last looked at; null for anything else.
    const zur_type_info* type_at(std::uintptr_t start) const;

    std::map<const unsigned char*, Image> images_;
    std::set<const void*> types_;
    std::vector<const Export*> within_;
};

} // namespace epm::test
