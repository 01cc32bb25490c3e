// The store support library: ranges of a store that are about to change.
#include "../common/contract.hpp"

#include <cstdio>

namespace {

platform_range_fn range_judge;
void* judge_context;
thread_local const char* last_failure = "no failure";

} // namespace

void platform_set_range_judge(platform_range_fn judge, void* context) {
    range_judge = judge;
    judge_context = context;
}

int lumeo_set_range(void* store, void* address, uint32_t length, uint32_t S) {
    if (store == nullptr || address == nullptr || length == 0) {
        last_failure = "a range needs a store, an address and a length";
        return 0;
    }
    if (range_judge == nullptr || range_judge(judge_context, store, address, length, S) != 0) return 1;
    last_failure = "the store refused the range";
    return 0;
}

void lumeo_perror(void) {
    std::fprintf(stderr, "lumeo: %s\n", last_failure);
}
