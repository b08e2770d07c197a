/* A guest program whose instruction count is known: each of THREADS threads
 * runs a two-instruction loop (subtract with flags, branch back) ITERATIONS
 * times, so the program executes 2 * ITERATIONS * THREADS instructions plus
 * its start-up and exit. The loop is the function count_down, which every
 * thread enters by a call (a static executable: the symbol table gives its
 * run-time address, for the plugin's uncounted= test).
 *
 *   insn_probe ITERATIONS [THREADS]
 */
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>

__attribute__((noinline)) void* count_down(void* arg);
__attribute__((noinline)) void* count_down(void* arg) {
    unsigned long n = *(const unsigned long*)arg;
    if (n == 0) return NULL;
#if defined(__aarch64__)
    __asm__ volatile("1: subs %0, %0, #1\n\tb.ne 1b" : "+r"(n) : : "cc");
#elif defined(__arm__)
    __asm__ volatile("1: subs %0, %0, #1\n\tbne 1b" : "+r"(n) : : "cc");
#else
#error "insn_probe is an ARM guest program"
#endif
    return NULL;
}

int main(int argc, char** argv) {
    if (argc < 2) {
        fprintf(stderr, "usage: insn_probe ITERATIONS [THREADS]\n");
        return 2;
    }
    unsigned long n = strtoul(argv[1], NULL, 10);
    const int threads = argc > 2 ? atoi(argv[2]) : 1;
    if (threads < 1 || threads > 16) return 2;
    pthread_t t[16];
    for (int i = 1; i < threads; ++i) {
        if (pthread_create(&t[i], NULL, count_down, &n) != 0) return 1;
    }
    count_down(&n);
    for (int i = 1; i < threads; ++i) pthread_join(t[i], NULL);
    return 0;
}
