// Replays a fuzz target's saved inputs as regression cases: every file of
// the folders given, in name order, through LLVMFuzzerTestOneInput. Built
// with the test command's ASan + UBSan build, where a finding aborts.
#include <dirent.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

bool ReadFile(const std::string& path, std::vector<uint8_t>* out) {
    FILE* f = fopen(path.c_str(), "rb");
    if (f == nullptr) return false;
    out->clear();
    uint8_t buf[65536];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, f)) > 0) out->insert(out->end(), buf, buf + n);
    const bool ok = !ferror(f);
    fclose(f);
    return ok;
}

}  // namespace

int main(int argc, char** argv) {
    int replayed = 0;
    for (int a = 1; a < argc; ++a) {
        DIR* d = opendir(argv[a]);
        if (d == nullptr) {
            fprintf(stderr, "cannot open %s\n", argv[a]);
            return 1;
        }
        std::vector<std::string> names;
        while (dirent* e = readdir(d)) {
            if (e->d_name[0] != '.') names.push_back(e->d_name);
        }
        closedir(d);
        std::sort(names.begin(), names.end());
        std::vector<uint8_t> data;
        for (const std::string& name : names) {
            const std::string path = std::string(argv[a]) + "/" + name;
            if (!ReadFile(path, &data)) {
                fprintf(stderr, "cannot read %s\n", path.c_str());
                return 1;
            }
            LLVMFuzzerTestOneInput(data.data(), data.size());
            ++replayed;
        }
    }
    printf("%d inputs replayed\n", replayed);
    return replayed > 0 ? 0 : 1;
}
