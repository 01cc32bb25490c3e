// How long it takes to load a library, with all that it depends on, into a process that has none of it: the median over
// many fresh processes. Usage: epm_bench_load LIBRARY
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    std::vector<double> taken;
    for (int i = 0; i < 51; ++i) {
        int ends[2];
        if (pipe(ends) != 0) return 1;
        const pid_t child = fork();
        if (child == 0) {
            using Clock = std::chrono::steady_clock;
            const auto start = Clock::now();
            if (dlopen(argv[1], RTLD_NOW) == nullptr) _exit(1);
            const double milliseconds = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
            _exit(write(ends[1], &milliseconds, sizeof milliseconds) == sizeof milliseconds ? 0 : 1);
        }
        close(ends[1]);
        double milliseconds = 0;
        const bool told = read(ends[0], &milliseconds, sizeof milliseconds) == sizeof milliseconds;
        close(ends[0]);
        int status = 0;
        if (child < 0 || waitpid(child, &status, 0) != child || status != 0 || !told) {
            std::fprintf(stderr, "%s cannot be loaded\n", argv[1]);
            return 1;
        }
        taken.push_back(milliseconds);
    }
    std::sort(taken.begin(), taken.end());
    std::printf("%.3f\n", taken[taken.size() / 2]);
    return 0;
}
