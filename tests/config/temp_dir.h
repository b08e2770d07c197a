// A temporary directory that removes itself and the files written in it.
#ifndef TOCRA_TESTS_CONFIG_TEMP_DIR_H
#define TOCRA_TESTS_CONFIG_TEMP_DIR_H

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>

namespace tocra_test {

class TempDir {
  public:
    TempDir() {
        char tmpl[] = "/tmp/tocra_config_XXXXXX";
        const char* d = mkdtemp(tmpl);
        path_ = d ? d : "";
    }
    // Removes the files written through Write (a directory listing is not
    // used: 32-bit readdir fails on 64-bit directory offsets under qemu).
    ~TempDir() {
        if (path_.empty()) return;
        for (const std::string& name : written_) unlink(file(name).c_str());
        rmdir(path_.c_str());
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    // The directory with its trailing separator, as the pipeline passes it.
    std::string dir() const { return path_ + "/"; }
    std::string file(const std::string& name) const { return path_ + "/" + name; }

    // Writes bytes to name in this directory; returns the full path.
    std::string Write(const std::string& name, const std::string& bytes) {
        const std::string p = file(name);
        written_.insert(name);
        if (FILE* f = fopen(p.c_str(), "wb")) {
            fwrite(bytes.data(), 1, bytes.size(), f);
            fclose(f);
        }
        return p;
    }

  private:
    std::string path_;
    std::set<std::string> written_;
};

}  // namespace tocra_test

#endif
