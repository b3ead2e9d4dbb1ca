// The cost of loading the library: dlopen time and the pages the load
// dirties (relocations written into the data segment), for the library
// as built (relative relocations packed where the linker can) and for the
// same code linked without packing. Each load happens in a fresh child
// process, which reports its figures through a pipe; the time reported is
// the child's dlopen alone (manual time).
#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

namespace {

struct LoadFigures {
    double seconds;
    long dirtyKb;  // private dirty memory of the library's mappings
    long rssKb;
};

// Sums Private_Dirty and Rss over the mappings of the file named path.
// In smaps a mapping starts with a line whose first word is its address
// range; its attribute lines start with a word ending in ':'.
void MappingFigures(const char *path, LoadFigures *out) {
    FILE *f = std::fopen("/proc/self/smaps", "r");
    if (f == nullptr) return;
    char line[1024];
    bool ours = false;
    while (std::fgets(line, sizeof line, f) != nullptr) {
        char word[64] = {};
        long kb = 0;
        if (std::sscanf(line, "%63s %ld", word, &kb) < 1) continue;
        const size_t len = std::strlen(word);
        if (word[len - 1] != ':') {
            ours = std::strstr(line, path) != nullptr;
        } else if (ours && std::strcmp(word, "Private_Dirty:") == 0) {
            out->dirtyKb += kb;
        } else if (ours && std::strcmp(word, "Rss:") == 0) {
            out->rssKb += kb;
        }
    }
    std::fclose(f);
}

bool LoadInChild(const char *path, LoadFigures *out) {
    int fds[2];
    if (::pipe(fds) != 0) return false;
    const pid_t pid = ::fork();
    if (pid < 0) return false;
    if (pid == 0) {
        ::close(fds[0]);
        LoadFigures fig{};
        timespec t0{}, t1{};
        clock_gettime(CLOCK_MONOTONIC, &t0);
        void *h = ::dlopen(path, RTLD_NOW | RTLD_LOCAL);
        clock_gettime(CLOCK_MONOTONIC, &t1);
        if (h == nullptr) ::_exit(2);
        fig.seconds = double(t1.tv_sec - t0.tv_sec) + double(t1.tv_nsec - t0.tv_nsec) * 1e-9;
        MappingFigures(path, &fig);
        const bool sent = ::write(fds[1], &fig, sizeof fig) == ssize_t(sizeof fig);
        ::_exit(sent ? 0 : 3);
    }
    ::close(fds[1]);
    const bool got = ::read(fds[0], out, sizeof *out) == ssize_t(sizeof *out);
    ::close(fds[0]);
    int status = 0;
    ::waitpid(pid, &status, 0);
    return got && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

void Dlopen(benchmark::State &state, const char *path) {
    LoadFigures sum{};
    for (auto _ : state) {
        LoadFigures fig{};
        if (!LoadInChild(path, &fig)) {
            state.SkipWithError("the library did not load in the child");
            break;
        }
        state.SetIterationTime(fig.seconds);
        sum.dirtyKb += fig.dirtyKb;
        sum.rssKb += fig.rssKb;
    }
    const double n = double(state.iterations());
    state.counters["dirty_kB"] = double(sum.dirtyKb) / n;
    state.counters["rss_kB"] = double(sum.rssKb) / n;
}

BENCHMARK_CAPTURE(Dlopen, packed, KESTRO_LIB_PACKED)->UseManualTime()->Iterations(200);
BENCHMARK_CAPTURE(Dlopen, unpacked, KESTRO_LIB_UNPACKED)->UseManualTime()->Iterations(200);

}  // namespace
