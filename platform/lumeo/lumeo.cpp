// The store support library: ranges of a store that are about to change.
#include "../common/contract.hpp"

#include <cstdio>

namespace {

platform_range_fn range_judge;
void* judge_context;
thread_local const char* last_failure = "no failure";

[[gnu::noinline]] int failed(const char* why) {
    last_failure = why;
    return 0;
}

int judged(void* store, void* address, uint32_t length, uint32_t S) {
    return range_judge(judge_context, store, address, length, S) != 0 ? 1 : failed("the store refused the range");
}

} // namespace

void platform_set_range_judge(platform_range_fn judge, void* context) {
    range_judge = judge;
    judge_context = context;
}

int lumeo_set_range(void* store, void* address, uint32_t length, uint32_t S) {
    const bool is_range = store != nullptr && address != nullptr && length != 0;
    if (is_range && range_judge == nullptr) [[likely]]
        return 1;
    return is_range ? judged(store, address, length, S) : failed("a range needs a store, an address and a length");
}

void lumeo_perror(void) {
    std::fprintf(stderr, "lumeo: %s\n", last_failure);
}
