// Replays fuzz inputs (files or whole directories) through one fuzz target built without
// sanitizers at release optimisation, to check the time per frame at the speed hosts see.
// Usage: <replay-program> [-limit_ms=10] PATH... ; exits 1 when some input stays over the limit.
#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace {

void collect(const std::string& path, std::vector<std::string>& files) {
    struct stat st;
    if (stat(path.c_str(), &st) != 0) return;
    if (!S_ISDIR(st.st_mode)) {
        files.push_back(path);
        return;
    }
    DIR* d = opendir(path.c_str());
    if (!d) return;
    while (dirent* e = readdir(d)) {
        if (e->d_name[0] == '.') continue;
        collect(path + "/" + e->d_name, files);
    }
    closedir(d);
}

bool readFile(const std::string& path, std::vector<uint8_t>& bytes) {
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) return false;
    bytes.clear();
    uint8_t buf[65536];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) bytes.insert(bytes.end(), buf, buf + n);
    std::fclose(f);
    return true;
}

int64_t runOnce(const std::vector<uint8_t>& bytes) {
    rtm_fuzz::stats().maxFrameNs = 0;
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    return rtm_fuzz::stats().maxFrameNs;
}

}  // namespace

int main(int argc, char** argv) {
    long limitMs = 10;
    std::vector<std::string> files;
    for (int i = 1; i < argc; ++i) {
        if (std::strncmp(argv[i], "-limit_ms=", 10) == 0) limitMs = std::atol(argv[i] + 10);
        else collect(argv[i], files);
    }
    // Timing is judged here, with a second run to rule out a busy machine, not inside the target.
    setenv("RTM_FUZZ_FRAME_MS", "0", 1);
    LLVMFuzzerInitialize(&argc, &argv);
    const int64_t limitNs = static_cast<int64_t>(limitMs) * 1000000;
    int64_t worst = 0;
    std::string worstFile;
    int slow = 0;
    std::vector<uint8_t> bytes;
    for (const std::string& f : files) {
        if (!readFile(f, bytes)) continue;
        int64_t t = runOnce(bytes);
        if (t > limitNs) t = std::min(t, runOnce(bytes));
        if (t > limitNs) {
            std::fprintf(stderr, "replay: SLOW %s: a frame took %lld us\n", f.c_str(),
                         static_cast<long long>(t / 1000));
            ++slow;
        }
        if (t > worst) {
            worst = t;
            worstFile = f;
        }
    }
    // The slowest input once more: a single slow frame on a busy machine is often only noise.
    if (!worstFile.empty() && readFile(worstFile, bytes)) worst = std::min(worst, runOnce(bytes));
    std::printf("replay: %zu inputs, %llu frames, slowest frame %lld us (%s, best of two runs), %d over %ld ms\n",
                files.size(), static_cast<unsigned long long>(rtm_fuzz::stats().frames),
                static_cast<long long>(worst / 1000), worstFile.c_str(), slow, limitMs);
    return slow ? 1 : 0;
}
