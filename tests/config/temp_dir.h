// A temporary directory that removes itself and the files written in it.
#ifndef TOCRA_TESTS_CONFIG_TEMP_DIR_H
#define TOCRA_TESTS_CONFIG_TEMP_DIR_H

#include <dirent.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace tocra_test {

class TempDir {
public:
    TempDir() {
        char tmpl[] = "/tmp/tocra_config_XXXXXX";
        const char* d = mkdtemp(tmpl);
        path_ = d ? d : "";
    }
    ~TempDir() {
        if (path_.empty()) return;
        if (DIR* dir = opendir(path_.c_str())) {
            while (dirent* e = readdir(dir)) {
                const std::string name = e->d_name;
                if (name != "." && name != "..") unlink((path_ + "/" + name).c_str());
            }
            closedir(dir);
        }
        rmdir(path_.c_str());
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    // The directory with its trailing separator, as the pipeline passes it.
    std::string dir() const { return path_ + "/"; }
    std::string file(const std::string& name) const { return path_ + "/" + name; }

    // Writes bytes to name in this directory; returns the full path.
    std::string Write(const std::string& name, const std::string& bytes) const {
        const std::string p = file(name);
        if (FILE* f = fopen(p.c_str(), "wb")) {
            fwrite(bytes.data(), 1, bytes.size(), f);
            fclose(f);
        }
        return p;
    }

private:
    std::string path_;
};

}  // namespace tocra_test

#endif
