// The observers, and how deep a thread is in runtime calls.
#include "support/observation.hpp"

#include <algorithm>
#include <atomic>
#include <vector>

namespace epm::test {

namespace {

std::vector<Observer*> observers;
std::atomic<bool> anyone = false;
thread_local int depth = 0;

} // namespace

Observer::Observer() {
    observers.push_back(this);
    anyone = true;
}

Observer::~Observer() {
    observers.erase(std::find(observers.begin(), observers.end(), this));
    anyone = !observers.empty();
}

bool is_observed() {
    return anyone.load(std::memory_order_relaxed);
}

bool in_bundle() {
    return depth == 0;
}

void tell(const std::function<void(Observer&)>& what) {
    if (!is_observed()) return;
    const int before = depth;
    depth = 1; // the calls that an observer makes are not observed
    for (Observer* o : observers) what(*o);
    depth = before;
}

RuntimeCall::RuntimeCall(const char* function, const Arguments& arguments) : is_from_bundle_(depth == 0) {
    if (is_from_bundle_) tell([&](Observer& o) { o.before_call(function, arguments); });
    ++depth;
}

RuntimeCall::~RuntimeCall() {
    --depth;
    if (is_from_bundle_) tell([](Observer& o) { o.after_call(); });
}

BundleCall::BundleCall(const Export* which) : depth_before_(depth) {
    depth = 0;
    tell([&](Observer& o) { o.enter_bundle(which); });
}

BundleCall::~BundleCall() {
    tell([](Observer& o) { o.leave_bundle(); });
    depth = depth_before_;
}

} // namespace epm::test
