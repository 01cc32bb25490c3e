// Watching the border between the Bundle and the runtime. Every imported operation and every Domain hook passes here
// (imports.cpp, runs.cpp, domains.cpp) before it is forwarded; observers see those that the Bundle makes, and not those
// that the runtime makes inside them. Without an observer everything is forwarded as it is.
#pragma once

#include <zur/types.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace epm::test {

class Recorder;

/// One exported operation of the Bundle.
struct Export {
    std::string type;
    std::string field; ///< empty for an operation of the whole type
    std::string operation;
};

/// The arguments of a call as text; asked for only where somebody writes them down.
using Arguments = std::function<std::string(const Recorder&)>;

inline std::vector<class Observer*> observers;
inline int depth = 0; ///< of calls into the runtime

/// Gets what happens while it lives, in order. Observers are made and ended outside of calls; there is one thread.
class Observer {
public:
    Observer() { observers.push_back(this); }
    virtual ~Observer() { std::erase(observers, this); }
    Observer& operator=(Observer&&) = delete; // nor is it copied

    virtual void enter_bundle(const Export*) {}
    virtual void leave_bundle() {}
    virtual void before_call(const char* /*function*/, const Arguments&) {}
    virtual void after_call() {}
    /// Bytes that the Bundle is about to write.
    virtual void announced(const void*, std::size_t) {}
    /// Also blocks that the runtime takes and gives back.
    virtual void allocated(void*, std::size_t, bool /*by_bundle*/) {}
    virtual void releasing(void*) {}
    virtual void copied_type(const zur_type_info*) {}
};

inline void tell(const std::function<void(Observer&)>& what) {
    const int before = std::exchange(depth, 1); // the calls that an observer makes are not observed
    for (Observer* o : observers) what(*o);
    depth = before;
}

/// A call from the Bundle into the runtime, for as long as it lasts.
class RuntimeCall {
public:
    RuntimeCall(const char* function, const Arguments& arguments) : is_from_bundle_(depth == 0) {
        if (is_from_bundle_) tell([&](Observer& o) { o.before_call(function, arguments); });
        ++depth;
    }
    ~RuntimeCall() {
        --depth;
        if (is_from_bundle_) tell([](Observer& o) { o.after_call(); });
    }
    RuntimeCall& operator=(RuntimeCall&&) = delete; // nor is it copied
    bool is_from_bundle() const { return is_from_bundle_; }

private:
    bool is_from_bundle_;
};

/// A call into the Bundle, by a test or back from the runtime.
class BundleCall {
public:
    explicit BundleCall(const Export* which) : depth_before_(std::exchange(depth, 0)) {
        tell([&](Observer& o) { o.enter_bundle(which); });
    }
    ~BundleCall() {
        tell([](Observer& o) { o.leave_bundle(); });
        depth = depth_before_;
    }
    BundleCall& operator=(BundleCall&&) = delete; // nor is it copied

private:
    int depth_before_;
};

} // namespace epm::test
