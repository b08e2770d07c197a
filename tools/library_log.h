// The library logs through Android's log, which on a Linux host prints lines
// on standard error ("BRIMVEL_AP E <date> <time> <pid> <tid> <text>"), and
// prints its timings on standard output. The demo collects both around each
// call, so that the report can quote the library's own error message next to
// a status, and shows them only when asked (--verbose).
#ifndef TOCRA_DEMO_LIBRARY_LOG_H
#define TOCRA_DEMO_LIBRARY_LOG_H

#include <string>
#include <vector>

namespace demo {

class LibraryLog {
  public:
    explicit LibraryLog(bool echo) : echo_(echo) {}
    ~LibraryLog();

    // Sends standard output and standard error into temporary files until End().
    void Begin();
    // Restores both, echoes what was collected (if asked to) and returns the
    // texts of the library's error-priority log lines.
    std::vector<std::string> End();

  private:
    struct Capture {
        int fd;
        int saved = -1;
        int file = -1;
    };
    static void Start(Capture* c);
    static std::string Stop(Capture* c);

    bool echo_;
    Capture out_{1};
    Capture err_{2};
};

// Runs f with the library's output collected; returns f's result and stores
// the library's error lines in errors.
template <typename F>
int CallLogged(LibraryLog& log, std::vector<std::string>* errors, F&& f) {
    log.Begin();
    const int status = f();
    *errors = log.End();
    return status;
}

}  // namespace demo

#endif
