// The library's semaphore and join calls, as the cost drivers link them
// (with --wrap=sem_wait, --wrap=sem_post, --wrap=sem_trywait and
// --wrap=pthread_join, which send the library's calls here): each wrapper
// calls the C library's function with a call instruction, never a jump, and
// returns its result. The library's own code may reach these functions by
// a jump (a tail call); through the wrappers every such call has a return
// address, where the counting plugin's uncounted calls end
// (bench/arm/uncounted.txt).
#include <pthread.h>
#include <semaphore.h>

extern "C" {
int __real_sem_wait(sem_t* sem);
int __real_sem_post(sem_t* sem);
int __real_sem_trywait(sem_t* sem);
int __real_pthread_join(pthread_t thread, void** result);

// The empty asm uses the result after the call, so that the compiler
// cannot turn the call into a jump.
int __wrap_sem_wait(sem_t* sem) {
    int r = __real_sem_wait(sem);
    __asm__ volatile("" : "+r"(r));
    return r;
}
int __wrap_sem_post(sem_t* sem) {
    int r = __real_sem_post(sem);
    __asm__ volatile("" : "+r"(r));
    return r;
}
int __wrap_sem_trywait(sem_t* sem) {
    int r = __real_sem_trywait(sem);
    __asm__ volatile("" : "+r"(r));
    return r;
}
int __wrap_pthread_join(pthread_t thread, void** result) {
    int r = __real_pthread_join(thread, result);
    __asm__ volatile("" : "+r"(r));
    return r;
}
}
