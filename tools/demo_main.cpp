// Demo of the capture pipeline around libbrimvel_tocra. The stages are added
// as the library grows; for now it says what it will do.
#include <cstdio>

int main() {
    fprintf(stderr,
            "tocra_demo: will build a 5-frame flash / no-flash burst, align frames 1-5 onto frame 0, balance\n"
            "their brightness, build the face map and the small RGB image, read the tuning file, and write\n"
            "pictures and a report to demo-output/.\n");
    return 0;
}
