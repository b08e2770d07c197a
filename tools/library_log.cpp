#include "library_log.h"

#include <unistd.h>
#include <cstdio>
#include <cstdlib>
#include <sstream>

namespace demo {
namespace {

// "TAG P date time pid tid text": the text of an error line of the library's
// tag, or an empty string for any other line.
std::string ErrorText(const std::string& line) {
    std::istringstream in(line);
    std::string tag, prio, date, time, pid, tid;
    if (!(in >> tag >> prio >> date >> time >> pid >> tid)) return "";
    if (tag != "BRIMVEL_AP" || (prio != "E" && prio != "F")) return "";
    std::string text;
    std::getline(in, text);
    const size_t start = text.find_first_not_of(' ');
    return start == std::string::npos ? "" : text.substr(start);
}

}  // namespace

LibraryLog::~LibraryLog() {
    if (out_.file >= 0 || err_.file >= 0) End();
}

void LibraryLog::Start(Capture* c) {
    char path[] = "/tmp/tocra_demo_log_XXXXXX";
    c->file = mkstemp(path);
    if (c->file < 0) return;  // no capture: the lines go straight through
    unlink(path);
    c->saved = dup(c->fd);
    dup2(c->file, c->fd);
}

std::string LibraryLog::Stop(Capture* c) {
    std::string text;
    if (c->file < 0) return text;
    dup2(c->saved, c->fd);
    close(c->saved);
    c->saved = -1;
    char buf[4096];
    lseek(c->file, 0, SEEK_SET);
    for (ssize_t n; (n = read(c->file, buf, sizeof buf)) > 0;) text.append(buf, static_cast<size_t>(n));
    close(c->file);
    c->file = -1;
    return text;
}

void LibraryLog::Begin() {
    fflush(stdout);
    fflush(stderr);
    Start(&out_);
    Start(&err_);
}

std::vector<std::string> LibraryLog::End() {
    fflush(stdout);
    fflush(stderr);
    const std::string printed = Stop(&out_);
    const std::string logged = Stop(&err_);
    if (echo_) {
        fputs(printed.c_str(), stdout);
        fflush(stdout);
        fputs(logged.c_str(), stderr);
        fflush(stderr);
    }
    std::vector<std::string> errors;
    std::istringstream lines(logged);
    for (std::string line; std::getline(lines, line);) {
        const std::string text = ErrorText(line);
        if (!text.empty()) errors.push_back(text);
    }
    return errors;
}

}  // namespace demo
