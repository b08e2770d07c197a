// ParseXML_TocraAPI on arbitrary tuning files: each input is written as
// brimvel.xml into a directory of its own (a new name every time, so the
// reader's path cache never hands back an earlier document), then loaded
// twice (the second call takes the cached path).
#include <sys/stat.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "brimvel_tocra.h"

// The log goes nowhere, but every line is formatted.
extern "C" int __android_log_print(int, const char*, const char* fmt, ...) {
    char buf[1024];
    va_list ap;
    va_start(ap, fmt);
    const int n = vsnprintf(buf, sizeof buf, fmt, ap);
    va_end(ap);
    return n;
}

namespace {

uint8_t g_record[97 + 32];

void* Convert(uint32_t handle) { return handle == 1 ? g_record : nullptr; }

std::string BaseDir() {
    static std::string base;
    if (base.empty()) {
        char tmpl[] = "/tmp/tocra_fuzz_api_XXXXXX";
        if (mkdtemp(tmpl) == nullptr) abort();
        base = tmpl;
        atexit([] { rmdir(BaseDir().c_str()); });
    }
    return base;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static unsigned long long counter = 0;
    setIO2VAConverter(Convert);
    const std::string dir = BaseDir() + "/d" + std::to_string(counter++) + "/";
    if (mkdir(dir.c_str(), 0700) != 0) return 0;
    const std::string file = dir + "brimvel.xml";
    if (FILE* f = fopen(file.c_str(), "wb")) {
        fwrite(data, 1, size, f);
        fclose(f);
    }
    memset(g_record, 0xA5, sizeof g_record);
    tagST_XML_PARSE_REQUEST req{1, dir.c_str()};
    const int first = ParseXML_TocraAPI(&req);
    const int second = ParseXML_TocraAPI(&req);
    if (first != 0 && first != -999) abort();
    if (second != first) abort();
    for (size_t i = 97; i < sizeof g_record; ++i) {
        if (g_record[i] != 0xA5) abort();  // written past the record
    }
    unlink(file.c_str());
    rmdir(dir.c_str());
    return 0;
}
